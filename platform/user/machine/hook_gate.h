#ifndef SORVANIC_PLATFORM_USER_MACHINE_HOOK_GATE_H
#define SORVANIC_PLATFORM_USER_MACHINE_HOOK_GATE_H

#include <cstdint>
#include <mutex>

// The place where hook calls wait while a driver holds them up (hook_hold). Private to platform/user/.

namespace platform {

/// Waits until nothing holds hooks up. Returns how often something has done so.
std::uint64_t pass_hook_gate();

/// Whether nothing has held hooks up since pass_hook_gate returned this.
bool is_still_open(std::uint64_t passed);

/// Waits until nothing holds hooks up, and lets no hold begin while the lock lives.
std::unique_lock<std::mutex> keep_hook_gate_open();

/// The answer of a hook during which no hold began. An answer other than 0 stands in any case. When one hold
/// follows another, they wait for the last attempt.
template <typename Hook>
int answer_of(Hook hook)
{
    constexpr int attempts = 8;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const std::uint64_t passed = pass_hook_gate();
        if (const int answer = hook(); answer != 0 || is_still_open(passed))
            return answer;
    }
    const std::unique_lock no_hold = keep_hook_gate_open();
    return hook();
}

} // namespace platform

#endif
