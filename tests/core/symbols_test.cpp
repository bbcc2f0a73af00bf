#include "core/base/symbols.h"

#include <string>
#include <utility>

#include "platform/user/driver/files.h"
#include "tests/support/machine.h"

namespace {

unsigned long address_of_do_exit(const std::string& text)
{
    const support::machine m;
    platform::serve_text("/proc/kallsyms", text);
    return find_symbol_addr("do_exit");
}

TEST(symbols, only_a_whole_name_field_matches)
{
    const std::pair<std::string, unsigned long> cases[] = {
        {"00000000000000a1 T do_exit\n", 0xa1},
        {"00000000000000a1 T sys_do_exit\n00000000000000a2 T do_exit\n", 0xa2},
        {"00000000000000a1 T do_exit_idle\n00000000000000a2 t do_exit\n", 0xa2},
        {"00000000000000a1 T do_exit\n00000000000000a2 T do_exit\n", 0xa1}, // the first wins
        {"00000000000000a1 T do_exit\t[module]\n", 0xa1},
        {"00000000000000a1\tT\tdo_exit", 0xa1}, // last line, no newline
        {"FFFFffff8104AbCd T do_exit\n", 0xffffffff8104abcd},
        {"xyz T do_exit\n00000000000000a2 T do_exit\n", 0}, // the first match is the answer
        {"do_exit\n00000000000000a2 T do_exit\n", 0xa2},    // no address before it: no field
        {"00000000000000a1 T do_exitx do_exit\n", 0},       // only the first place counts
        {"0000000000000000 T do_exit\n", 0},                // addresses withheld
        {"", 0},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(address_of_do_exit(text), expected) << text;
}

TEST(symbols, a_long_line_continues_as_a_line_of_its_own)
{
    // 127 bytes make the first piece; the rest is read as a line that begins with an address.
    const std::string filler = "00000000000000a1 T " + std::string(127 - 19, 'x');
    EXPECT_EQ(address_of_do_exit(filler + "f0000000000000b2 T do_exit\n"), 0xf0000000000000b2u);
    EXPECT_EQ(address_of_do_exit(filler.substr(1) + "f0000000000000b2 T do_exit\n"), 0xb2u)
        << "its first digit went into the piece before";
}

TEST(symbols, an_address_has_at_most_sixteen_digits)
{
    EXPECT_EQ(get_sym_address("123456789abcdef01"), 0x123456789abcdef0u);
}

TEST(symbols, finds_no_symbol_in_an_unreadable_file)
{
    const support::machine m;
    for (const platform::fault kind : {platform::fault::open, platform::fault::read}) {
        platform::fail_call(kind, 1);
        EXPECT_EQ(find_symbol_addr("do_exit"), 0u);
        EXPECT_TRUE(platform::fault_fired());
    }
}

} // namespace
