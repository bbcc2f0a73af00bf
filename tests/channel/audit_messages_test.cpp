#include "channel/audit_messages.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "channel/audit_records.h"
#include "channel/last_events.h"
#include "channel/socket.h"
#include "platform/user/driver/netlink.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using messages::field;
using messages::number;
using messages::number_at;
using messages::record;

void untp(kernel::u32 key, const std::string& path, const std::string& comm = "sh")
{
    EXPECT_EQ(sorvanic_common_send_untp_message(&key, path.c_str(), comm.c_str()), 0);
}
void faau(const std::string& path, const std::string& user, kernel::u32 code, const std::string& comm = "sh")
{
    EXPECT_EQ(sorvanic_common_send_faau_message(path.c_str(), user.c_str(), comm.c_str(), code), 0);
}
void pcau(const std::string& path, const std::string& user, kernel::u32 code, const std::string& comm = "sh")
{
    EXPECT_EQ(sorvanic_common_send_pcau_message(path.c_str(), user.c_str(), comm.c_str(), code), 0);
}

/// A loaded machine whose process 10 reports.
class audit_messages : public testing::Test {
protected:
    audit_messages()
    {
        m.process(10, 1, "");
        reporter.emplace(10);
    }

    support::machine m{""};
    std::optional<support::acting> reporter;
};

TEST_F(audit_messages, records_stand_in_the_message_byte_for_byte_and_texts_are_cut)
{
    messages::agent agent(100);
    m.log();
    untp(0x3b75655e, "/usr/bin/tool", "bash");
    EXPECT_EQ(agent.next(), record(2, messages::bytes("5e 65 75 3b") + field("/usr/bin/tool", 1024) +
                                          field("bash", 1024) + number(0) + number(6)));
    for (const auto& [send, kind] : {std::pair(&faau, 3u), std::pair(&pcau, 4u)}) {
        send("/data/f", "bob", 0xffffffff, "vi");
        EXPECT_EQ(agent.next(), record(kind, field("/data/f", 1024) + field("vi", 1024) + field("bob", 32) +
                                                 number(0xffffffff) + number(4)));
    }
    EXPECT_EQ(m.log(), "");
    EXPECT_EQ(sorvanic_common_send_syst_message(1, -1), 0);
    EXPECT_EQ(agent.next(), messages::bytes("18 00 00 00 13 00 08 00 00 00 00 00 64 00 00 00") + number(1) +
                                number(0xffffffff));
    EXPECT_EQ(m.log(), "send syst message success: 1  -1\n");

    const std::string path(1023, 'p'), comm(15, 'c'), user(31, 'u');
    untp(1, path + "pp", comm + "c");
    EXPECT_EQ(agent.next(),
              record(2, number(1) + field(path, 1024) + field(comm, 1024) + number(0) + number(6)));
    faau(path + "pp", user + "u", 1, comm + "c");
    EXPECT_EQ(agent.next(),
              record(3, field(path, 1024) + field(comm, 1024) + field(user, 32) + number(1) + number(4)));
    faau(path + "tail", user + "tail", 1, comm + "tail");
    EXPECT_TRUE(agent.next().empty()) << "what is cut off makes no difference";
}

TEST_F(audit_messages, paths_are_classed_by_place_and_user)
{
    messages::agent agent(100);
    std::uint32_t key = 0;
    // The classes in a untp, a faau and a pcau record; process 10 is the user's.
    const auto classes = [&](const char* user, const char* path) {
        sorvanic_kernel_hashmap_module.insert(10, user);
        untp(++key, path);
        std::string all = std::to_string(number_at(agent.next(), 16 + 2056));
        for (const auto send : {faau, pcau}) {
            send(path, user, key, "sh");
            all += std::to_string(number_at(agent.next(), 16 + 2084));
        }
        return all;
    };
    const struct {
        const char *user, *classes;
        std::vector<const char*> paths;
    } cases[] = {
        {"bob", "555", {"/home/bob/run", "/home/bobby/run", "/HOME/Bob"}}, // no separator behind the name
        {"bob", "444", {"/home/bo", "/home/", "/hom", "/opt/home/bob", ""}},
        {"bob", "333", {"/etc/passwd", "/ETC/x", "/lib/x", "/LIB64/x"}},
        {"bob", "444", {"/etc", "/etcetera", "/lib32/x"}},
        {"", "555", {"/home/x"}},
        {"syste", "555", {"/home/systemd/x"}},
        // Whose name begins with "SYSTEM" is nobody, but for untp, which asks for a record.
        {"SYSTEM", "366", {"/etc/x"}},
        {"systemd", "366", {"/etc/x"}},
        {"System admin", "366", {"/etc/x"}},
    };
    for (const auto& c : cases)
        for (const char* path : c.paths)
            EXPECT_EQ(classes(c.user, path), c.classes) << c.user << " " << path;
    sorvanic_kernel_hashmap_module.erase(10);
    untp(++key, "/etc/x");
    EXPECT_EQ(number_at(agent.next(), 16 + 2056), 6u);
}

TEST_F(audit_messages, only_a_repetition_is_suppressed)
{
    messages::agent agent(100);
    const struct {
        std::function<void()> report;
        std::size_t sent;
        const char* why;
    } steps[] = {
        {[] { untp(0, "/first"); }, 0, "a first key of 0 equals the empty buffer"},
        {[] { untp(1, "/x"), untp(2, "/x"), untp(1, "/x"); }, 3, "A, B, A"},
        {[] { untp(1, "/elsewhere", "other"); }, 0, "only the key counts"},
        {[] { faau("/x", "bob", 1), faau("/x", "bob", 1); }, 1, "the same again"},
        {[] { pcau("/x", "bob", 1); }, 1, "the kinds do not know each other's records"},
        {[] { faau("/x", "bob", 1); }, 0, "nor displace them"},
        {[] { faau("/x", "bob", 2), faau("/y", "bob", 2); }, 2, "another decision or path is news"},
        {[] { faau("/y", "eve", 2), faau("/y", "eve", 2, "vi"); }, 2, "as is another user or program"},
        {[] { sorvanic_common_send_syst_message(1, 1), sorvanic_common_send_syst_message(1, 1); }, 2,
         "a change of the clock is always told"},
    };
    for (const auto& step : steps) {
        step.report();
        EXPECT_EQ(agent.drain(), step.sent) << step.why;
    }
    const auto last = [](auto kind) { return sorvanic_kernel_singleaud_module.inside_getevent(kind); };
    EXPECT_STREQ(static_cast<const untp_record*>(last(last_untp))->path, "/x")
        << "the last one is the last that was sent, and all of it is kept";
    EXPECT_EQ(last(last_event_kinds), nullptr);
    untp(0, "/x");
    EXPECT_EQ(agent.drain(), 1u) << "a key of 0 is one like others";
}

TEST_F(audit_messages, are_remembered_even_when_they_cannot_be_sent)
{
    const auto report = [] {
        untp(1, "/x");
        faau("/x", "bob", 1);
        pcau("/x", "bob", 1);
    };
    m.log();
    report();
    sorvanic_common_send_syst_message(1, 2);
    EXPECT_EQ(m.log(), "send untp message error !\nsend faau message error !\nsend pcau message error !\n"
                       "send syst message error !\n");
    messages::agent agent(100);
    report();
    EXPECT_EQ(agent.drain(), 0u);
}

TEST_F(audit_messages, wait_briefly_for_a_slow_agent_and_not_for_one_that_is_gone)
{
    const std::string lost = "]\nnetlink send audit msg error \nsend untp message error !\n";
    platform::netlink_send(messages::helo, 100);
    m.log();
    untp(9, "/x");
    EXPECT_EQ(m.log(), "send  netlink failed ; rc = [-111" + lost);
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, 100u) << "it stays the agent";

    // Its process id comes back: it hears of what happens from now on.
    platform::netlink_peer again(100, 2);
    const auto next_key = [&] { return number_at(again.receive().value_or(std::string(20, '\0')), 16); };
    untp(1, "/x");
    untp(2, "/x");
    EXPECT_EQ(m.log(), "");
    using namespace std::chrono;
    const auto begin = steady_clock::now();
    untp(3, "/x");
    const auto waited = steady_clock::now() - begin;
    EXPECT_GE(waited, milliseconds(10));
    EXPECT_LT(waited, seconds(2));
    EXPECT_EQ(m.log(), "send  netlink failed ; rc = [-11" + lost);
    EXPECT_EQ(next_key(), 1u);
    EXPECT_EQ(next_key(), 2u);
    untp(4, "/x");
    EXPECT_EQ(next_key(), 4u);
}

TEST_F(audit_messages, survive_every_failed_allocation)
{
    messages::agent agent(100);
    std::uint32_t event_number = 0;
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"untp", [&] { untp(++event_number, "/x"); }},
        {"faau", [&] { faau("/x", "bob", ++event_number); }},
        {"pcau", [&] { pcau("/x", "bob", ++event_number); }},
        {"syst", [&] { sorvanic_common_send_syst_message(static_cast<int>(++event_number), 0); }},
    };
    const std::string no_buffer = "Failed to allocate socket buffer\n";
    for (const auto& [kind, send] : cases) {
        const std::string lost =
            std::string("netlink send audit msg error \nsend ") + kind + " message error !\n";
        m.log();
        // The record, then its message.
        support::fail_each_call(platform::fault::allocation, send, [&](std::size_t n) {
            ASSERT_LE(n, 2u);
            EXPECT_EQ(agent.drain(), n == 0 ? 1u : 0u);
            const std::string log = m.log();
            EXPECT_EQ(n == 0 ? "" : log, n == 2 ? no_buffer + lost : "");
        });
        platform::fail_call(platform::fault::message_room, 1);
        send();
        EXPECT_EQ(m.log(), lost);
        EXPECT_EQ(agent.drain(), 0u);
    }
}

TEST_F(audit_messages, a_message_is_padded_with_zeros_that_its_length_does_not_count)
{
    platform::netlink_peer peer(55);
    const auto send = [](const char* payload, kernel::u32 size, kernel::u16 flags) {
        return sorvanic_kernel_socket_inside_send_audit(payload, size, 22, flags, 55);
    };
    EXPECT_EQ(send("abcde", 5, 3), 0);
    EXPECT_EQ(peer.receive(), number(21) + number(22 | 3 << 16) + number(0) + number(55) + field("abcde", 8));
    for (const auto& [payload, size] : {std::pair<const char*, kernel::u32>(nullptr, 5), {"abcde", 0}}) {
        EXPECT_EQ(send(payload, size, 0), 0);
        EXPECT_EQ(peer.receive(), number(16) + number(22) + number(0) + number(55));
    }
    platform::fail_call(platform::fault::message_room, 1);
    EXPECT_EQ(send("abcde", 5, 0), -90);
    EXPECT_EQ(peer.receive(), std::nullopt);
}

TEST(audit_without_socket, fails_quietly)
{
    support::machine m;
    platform::fail_call(platform::fault::netlink_create, 1);
    EXPECT_EQ(m.load(), 0);
    EXPECT_EQ(sorvanic_kernel_socket_send_audit("x", 1, 8), -1);
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit("x", 1, 22, 0, 100), -1);
    EXPECT_EQ(m.log(), "");
}

} // namespace
