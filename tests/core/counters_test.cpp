#include "core/counters.h"

#include <string>

#include "channel/audit_messages.h"
#include "platform/user/driver/netlink.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

// What a status display is told, against what is really there.

namespace {

std::string tables()
{
    std::string text;
    table_state table;
    for (kernel::u32 index = 0; read_table_state(index, &table); ++index)
        text += std::string(table.file) + ":" + std::to_string(table.entries) + "/" +
                std::to_string(table.generation) + " ";
    return text;
}

TEST(counters, count_what_lookups_see_of_each_table)
{
    support::machine m("statlabel=3 modllabel=2222 blacklist=a whitelist=a,b,c platuser=bob\neve "
                       "appevp=/a:*:4\n/b:*:x\n/c:*");
    const std::string end = "installlabel:1/1 statlabel:1/1 auditlabel:7/1 sublabel:0/1 objlabel:0/1 dac:0/1 "
                            "priv:0/1 appevp:2/1 modllabel:4/1 ptpylist:0/1 platuser:2/1 ";
    EXPECT_EQ(tables(), "blacklist:1/1 whitelist:3/1 supertrustfile:0/1 dirctl:0/1 workdir:0/1 " + end);

    // A reload fills the copy that held the former list, and one that fails leaves it empty.
    m.policy("whitelist=d workdir=/a\n/b");
    platform::netlink_send(messages::reload(0x400), 100);
    m.remove("/etc/sorvanic/blacklist");
    platform::netlink_send(messages::reload(0x400 | 0x800), 100);
    EXPECT_EQ(tables(), "blacklist:0/2 whitelist:1/3 supertrustfile:0/1 dirctl:0/1 workdir:2/3 " + end);

    m.unload();
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(tables(), "blacklist:0/1 whitelist:1/1 supertrustfile:0/1 dirctl:0/1 workdir:2/1 " + end);
}

TEST(counters, count_each_record_that_nobody_got)
{
    support::machine m("statlabel=3 modllabel=2222 auditlabel=5:2\n2:7");
    m.write("/bin/other", "x");
    m.process(10, 1, "");
    engine_counters before;
    read_engine_counters(&before);
    const auto counted = [&](const char* what, kernel::u64 dropped, kernel::u64 suppressed,
                             kernel::u64 undecided) {
        engine_counters now;
        read_engine_counters(&now);
        EXPECT_EQ(now.records_dropped - before.records_dropped, dropped) << what;
        EXPECT_EQ(now.records_suppressed - before.records_suppressed, suppressed) << what;
        EXPECT_EQ(now.execs_undecided - before.execs_undecided, undecided) << what;
        EXPECT_EQ(now.calls_in_flight, 0u) << what;
        before = now;
    };
    EXPECT_EQ(before.system_status, 3);
    EXPECT_EQ(before.audit_switches[2] * 10 + before.audit_switches[5], 72u);
    EXPECT_EQ(before.agent, 0u);
    EXPECT_EQ(m.exec(10, "/bin/other"), -1);
    counted("no agent", 1, 0, 0);

    messages::agent agent(100, 1);
    EXPECT_EQ(m.exec(10, "/bin/other"), -1);
    counted("a repetition", 0, 1, 0);
    EXPECT_EQ(before.agent, 100u);
    sorvanic_common_send_faau_message("/x", "bob", "sh", 1);
    counted("received", 0, 0, 0);
    sorvanic_common_send_faau_message("/y", "bob", "sh", 1);
    counted("no room", 1, 0, 0);
    platform::fail_call(platform::fault::allocation, 1);
    sorvanic_common_send_faau_message("/z", "bob", "sh", 1);
    counted("no memory", 1, 0, 0);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(m.exec(10, "/bin/other"), 0);
    counted("no memory for the path", 0, 0, 1);
}

} // namespace
