#include <fcntl.h>
#include <sys/inotify.h>

#include <string>
#include <utility>

#include "host/unique_fd.h"
#include "platform/user/driver/netlink.h"
#include "policy/statusctl.h"
#include "policy/whitelist.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using support::machine;

const std::string accepted = "Response Policy Request Success\n";

/// Which policy files have been opened since the last call, in order, joined by blanks.
class opened_files {
public:
    explicit opened_files(machine& m) : events_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        ::inotify_add_watch(events_.get(), m.real("/etc/sorvanic").c_str(), IN_OPEN);
    }

    std::string next()
    {
        std::string names;
        alignas(inotify_event) char buffer[16384];
        ssize_t size = 0;
        while ((size = ::read(events_.get(), buffer, sizeof buffer)) > 0) {
            for (ssize_t at = 0; at < size;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                if (event->len != 0 && !names.ends_with(event->name))
                    names += (names.empty() ? "" : " ") + std::string(event->name);
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
        return names;
    }

private:
    host::unique_fd events_;
};

int request(std::uint32_t mask)
{
    return platform::netlink_send(messages::reload(mask), 77);
}

TEST(reload, each_bit_reads_its_tables_again_in_the_one_order)
{
    machine m("dirctl=1 statlabel=1 auditlabel=1 installlabel=1 ptpylist=1 platuser=1 modllabel=1 appevp=1 "
              "priv=1 dac=1 objlabel=1 sublabel=1 whitelist=1 blacklist=1 supertrustfile=1 workdir=1");
    opened_files opened(m);
    const char* const files[] = {
        "dirctl",   "priv",         "dac",        "appevp",    "supertrustfile",    "objlabel",
        "sublabel", "statlabel",    "auditlabel", "modllabel", "whitelist workdir", "blacklist",
        "ptpylist", "installlabel", "platuser"};
    std::uint32_t bit = 1;
    for (const char* file : files) {
        request(bit);
        EXPECT_EQ(opened.next(), file) << std::hex << bit;
        bit <<= 1;
    }
    for (const std::uint32_t mask : {0u, 0xffff8000u}) {
        request(mask);
        EXPECT_EQ(opened.next(), "") << std::hex << mask;
    }
    request(0x7fff);
    EXPECT_EQ(opened.next(),
              "appevp dirctl priv dac objlabel sublabel statlabel auditlabel installlabel whitelist workdir "
              "blacklist supertrustfile modllabel ptpylist platuser");
}

TEST(reload, a_request_in_bytes_replaces_the_list)
{
    machine m("");
    const kernel::u32 key = 0x01020304;
    m.keys("whitelist", {key});
    EXPECT_EQ(sorvanic_kernel_whitelist_module.search(&key), 1);
    platform::netlink_send(messages::bytes("18 00 00 00 12 00 00 00 00 00 00 00 00 00 00 00 "
                                           "01 00 00 00 00 04 00 00"),
                           77);
    EXPECT_EQ(sorvanic_kernel_whitelist_module.search(&key), 0);
    EXPECT_EQ(m.log(), accepted);
}

TEST(reload, is_reported_by_the_switches_as_they_are_afterwards)
{
    machine m("statlabel=3");
    messages::agent agent(100);
    m.log();
    const auto reported = [&](std::uint32_t mask) {
        request(mask);
        const std::string message = agent.next();
        EXPECT_EQ(agent.next(), "");
        EXPECT_EQ(m.log(), accepted + (message.empty() ? "" : "send plau audit !\n"));
        return !message.empty();
    };
    EXPECT_FALSE(reported(0)) << "the switch is off";
    m.encoded("auditlabel", "5:2");
    EXPECT_FALSE(reported(0x80)) << "it has not been read again";
    EXPECT_TRUE(reported(0x100)) << "this very request has read it";
    EXPECT_TRUE(reported(0)) << "an empty mask is a request, too";
    m.encoded("statlabel", "2");
    EXPECT_TRUE(reported(0));
    EXPECT_FALSE(reported(0x80)) << "only when enforcing";
    m.policy("statlabel=3 auditlabel=5:1");
    EXPECT_FALSE(reported(0x180));
}

TEST(reload, is_reported_in_the_name_of_the_one_who_asked)
{
    machine m("statlabel=3 auditlabel=5:2");
    messages::agent agent(100);
    m.log();

    request(0x400);
    EXPECT_EQ(agent.next(), messages::bytes("38 00 00 00 13 00 06 00 00 00 00 00 64 00 00 00 "
                                            "53 59 53 54 45 4d") +
                                std::string(26, '\0') + messages::bytes("00 04 00 00 01 00 00 00"));
    const std::string user(31, 'u');
    sorvanic_kernel_hashmap_module.insert(77, user.c_str());
    request(0x80000000);
    EXPECT_EQ(agent.next().substr(16), user + '\0' + messages::number(0x80000000) + messages::number(1));

    // Without an agent the line is there all the same, and nothing else.
    platform::netlink_send(messages::quit, 100);
    m.log();
    request(0);
    EXPECT_EQ(m.log(), accepted + "send plau audit !\n");
}

// What cannot be read leaves its own table empty, and the request is still answered for.
TEST(reload, survives_every_failed_open_and_allocation)
{
    for (const platform::fault kind : {platform::fault::open, platform::fault::allocation}) {
        machine m("statlabel=3 modllabel=2222 whitelist=a,b workdir=/opt auditlabel=5:2");
        support::fail_each_call(
            kind, [] { EXPECT_EQ(request(0x7fff), 0); },
            [&](std::size_t) { EXPECT_TRUE(m.log().starts_with(accepted)); });
        EXPECT_EQ(sorvanic_kernel_statusctl_module.getstatus(), 3) << "the last one read everything";
    }
}

} // namespace
