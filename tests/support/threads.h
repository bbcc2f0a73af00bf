#ifndef SORVANIC_TESTS_SUPPORT_THREADS_H
#define SORVANIC_TESTS_SUPPORT_THREADS_H

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace support {

/// Runs `act(0)` to `act(count - 1)` on a thread each, all at the same time.
inline void on_threads(int count, const std::function<void(int)>& act)
{
    std::atomic<int> ready = 0; // not a barrier: its threads wake up one after the other
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready != count)
                std::this_thread::yield();
            act(i);
        });
}

inline void at_once(const std::vector<std::function<void()>>& acts)
{
    on_threads(static_cast<int>(acts.size()), [&](int i) { acts[static_cast<std::size_t>(i)](); });
}

} // namespace support

#endif
