// Datagrams to the engine, one after the other.
//
// Each stands behind a byte with its length and one that picks the sender.

#include <algorithm>
#include <string_view>

#include "core/entry.h"
#include "fuzz/machine.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"

namespace {

/// The engine, for as long as the process runs: what one input leaves behind, the next one meets.
void start()
{
    fuzz::serve_policy_text(policy_table::platuser, "bob\nalice");
    platform::serve_text("/etc/sorvanic/statlabel", fuzz::encode("3"));
    platform::serve_text("/proc/kallsyms", platform::symbol_text());
    fuzz::expect(sorvanic_init() == 0, "the engine starts");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    [[maybe_unused]] static const bool started = (start(), true);
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (rest.size() >= 2) {
        const std::size_t length = std::min<std::size_t>(static_cast<std::uint8_t>(rest[0]), rest.size() - 2);
        const int sender = 100 + static_cast<std::uint8_t>(rest[1]) % 4;
        fuzz::expect(platform::netlink_send(rest.substr(2, length), sender) == 0, "a datagram is taken");
        fuzz::expect_nothing_held();
        rest.remove_prefix(2 + length);
    }
    return 0;
}
