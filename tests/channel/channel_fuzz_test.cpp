#include <string>

#include "platform/user/driver/netlink.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

// The handler's buffer is exactly as long as the datagram, so under the address sanitizer a read
// past it ends the test.
class channel_fuzz : public testing::Test {
protected:
    /// Sends it and checks what holds for every datagram.
    void send(const std::string& datagram)
    {
        EXPECT_EQ(platform::netlink_send(datagram, 77), 0);
        const std::string log = m.log();
        if (datagram.size() < 16 || messages::number_at(datagram, 0) < 16 ||
            messages::number_at(datagram, 0) > datagram.size()) {
            ASSERT_EQ(log, "Received Corrupt Netlink Message\n");
        }
        ASSERT_EQ(platform::live().locks, 0u);
        platform::assert_thread_clean();
    }

    support::machine m{"platuser=bob"};
};

TEST_F(channel_fuzz, survives_every_cut_of_every_message)
{
    for (const std::string& whole :
         {messages::helo, messages::quit, messages::reload(0x7fff), messages::login(300, 0, "bob"),
          messages::login(300, 1, std::string(500, 'n')), messages::of_type(23), messages::of_type(26)})
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            std::string cut = whole.substr(0, size);
            send(cut);
            if (size < 16)
                continue;
            cut.replace(0, 4, messages::number(static_cast<std::uint32_t>(size))); // and says so
            send(cut);
        }
}

} // namespace
