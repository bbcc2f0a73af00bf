#include "channel/audit_messages.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "channel/audit_records.h"
#include "channel/last_events.h"
#include "channel/socket.h"
#include "platform/user/faults.h"
#include "platform/user/machine.h"
#include "platform/user/netlink.h"
#include "platform/user/tasks.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using messages::number;
using messages::number_at;
using support::machine;

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
        EXPECT_EQ(m.load(), 0);
        reporter = platform::find_task(10);
        event.emplace(reporter.get());
    }
    ~audit_messages() override { event.reset(); }

    machine m;
    platform::task_handle reporter;
    std::optional<platform::event> event;
};

std::string header(std::uint32_t length, std::uint32_t kind)
{
    return number(length) + number(19 | kind << 16) + number(0) + number(100);
}

std::string field(const std::string& text, std::size_t size)
{
    return text + std::string(size - text.size(), '\0');
}

TEST_F(audit_messages, records_stand_in_the_message_byte_for_byte)
{
    messages::agent agent(100);
    m.log();
    untp(0x3b75655e, "/usr/bin/tool", "bash");
    EXPECT_EQ(agent.next(), header(2076, 2) + messages::bytes("5e 65 75 3b") + field("/usr/bin/tool", 1024) +
                                field("bash", 1024) + number(0) + number(6));
    faau("/data/f", "bob", 7, "vi");
    EXPECT_EQ(agent.next(), header(2104, 3) + field("/data/f", 1024) + field("vi", 1024) + field("bob", 32) +
                                number(7) + number(4));
    pcau("/data/f", "bob", 0xffffffff, "vi");
    EXPECT_EQ(agent.next(), header(2104, 4) + field("/data/f", 1024) + field("vi", 1024) + field("bob", 32) +
                                number(0xffffffff) + number(4));
    EXPECT_EQ(m.log(), "");
    EXPECT_EQ(sorvanic_common_send_syst_message(1, -1), 0);
    EXPECT_EQ(agent.next(), messages::bytes("18 00 00 00 13 00 08 00 00 00 00 00 64 00 00 00") + number(1) +
                                number(0xffffffff));
    EXPECT_EQ(m.log(), "send syst message success: 1  -1\n");
}

TEST_F(audit_messages, texts_are_cut_to_their_fields)
{
    messages::agent agent(100);
    const std::string path = "/" + std::string(1999, 'p');
    const std::string comm(16, 'c');
    untp(1, path, comm);
    std::string record = agent.next().substr(16);
    EXPECT_EQ(record, number(1) + field(path.substr(0, 1023), 1024) + field(std::string(15, 'c'), 1024) +
                          number(0) + number(6));
    faau(path, std::string(40, 'u'), 1, comm);
    record = agent.next().substr(16);
    EXPECT_EQ(record, field(path.substr(0, 1023), 1024) + field(std::string(15, 'c'), 1024) +
                          field(std::string(31, 'u'), 32) + number(1) + number(4));
    EXPECT_TRUE(agent.next().empty());
    faau(path + "tail", std::string(40, 'u') + "tail", 1, comm + "tail");
    EXPECT_TRUE(agent.next().empty()) << "what is cut off makes no difference";
}

TEST_F(audit_messages, paths_are_classed_by_place_and_user)
{
    messages::agent agent(100);
    struct {
        const char* user;
        const char* path;
        std::uint32_t path_class;
    } const cases[] = {
        {"bob", "/home/bob/run", 5},
        {"bob", "/home/bobby/run", 5}, // no separator behind the name
        {"bob", "/HOME/Bob", 5},
        {"bob", "/home/bo", 4},
        {"bob", "/home/", 4},
        {"bob", "/hom", 4},
        {"bob", "/opt/home/bob", 4},
        {"bob", "/etc/passwd", 3},
        {"bob", "/ETC/x", 3},
        {"bob", "/etc", 4},
        {"bob", "/etcetera", 4},
        {"bob", "/lib/x", 3},
        {"bob", "/LIB64/x", 3},
        {"bob", "/lib32/x", 4},
        {"bob", "", 4},
        {"", "/home/x", 5},
        {"syste", "/home/systemd/x", 5},
    };
    std::uint32_t key = 0;
    for (const auto& c : cases) {
        sorvanic_kernel_hashmap_module.erase(10);
        sorvanic_kernel_hashmap_module.insert(10, c.user);
        untp(++key, c.path);
        EXPECT_EQ(number_at(agent.next(), 16 + 2056), c.path_class) << c.user << " " << c.path;
        faau(c.path, c.user, key);
        EXPECT_EQ(number_at(agent.next(), 16 + 2084), c.path_class) << c.user << " " << c.path;
        pcau(c.path, c.user, key);
        EXPECT_EQ(number_at(agent.next(), 16 + 2084), c.path_class) << c.user << " " << c.path;
    }
    // Whose name begins with "SYSTEM" is nobody, but for untp, which asks for a record.
    for (const char* user : {"SYSTEM", "systemd", "System admin"}) {
        sorvanic_kernel_hashmap_module.insert(10, user);
        untp(++key, "/etc/x");
        EXPECT_EQ(number_at(agent.next(), 16 + 2056), 3u) << user;
        faau("/etc/x", user, key);
        EXPECT_EQ(number_at(agent.next(), 16 + 2084), 6u) << user;
    }
    sorvanic_kernel_hashmap_module.erase(10);
    untp(++key, "/etc/x");
    EXPECT_EQ(number_at(agent.next(), 16 + 2056), 6u);
}

TEST_F(audit_messages, only_a_repetition_is_suppressed)
{
    messages::agent agent(100);
    untp(0, "/first");
    EXPECT_EQ(agent.drain(), 0u) << "a first key of 0 equals the empty buffer";
    for (const std::uint32_t key : {1u, 2u, 1u}) // A, B, A
        untp(key, "/x");
    EXPECT_EQ(agent.drain(), 3u);
    untp(1, "/elsewhere", "other");
    EXPECT_EQ(agent.drain(), 0u) << "only the key counts";
    EXPECT_STREQ(
        static_cast<const untp_record*>(sorvanic_kernel_singleaud_module.inside_getevent(last_untp))->path,
        "/x")
        << "the last one is the last that was sent, and all of it is kept";
    EXPECT_EQ(sorvanic_kernel_singleaud_module.inside_getevent(last_event_kinds), nullptr);
    untp(0, "/x");
    EXPECT_EQ(agent.drain(), 1u);

    faau("/x", "bob", 1);
    faau("/x", "bob", 1);
    EXPECT_EQ(agent.drain(), 1u);
    pcau("/x", "bob", 1);
    EXPECT_EQ(agent.drain(), 1u) << "the kinds do not know each other's records";
    faau("/x", "bob", 1);
    EXPECT_EQ(agent.drain(), 0u);
    faau("/x", "bob", 2);
    faau("/y", "bob", 2);
    faau("/y", "eve", 2);
    faau("/y", "eve", 2, "vi");
    EXPECT_EQ(agent.drain(), 4u) << "any field makes a difference";

    for (int i = 0; i < 3; ++i)
        sorvanic_common_send_syst_message(1, 1);
    EXPECT_EQ(agent.drain(), 3u);
}

TEST_F(audit_messages, what_could_not_be_sent_is_remembered_all_the_same)
{
    m.log();
    untp(1, "/x");
    faau("/x", "bob", 1);
    pcau("/x", "bob", 1);
    sorvanic_common_send_syst_message(1, 2);
    EXPECT_EQ(m.log(), "send untp message error !\nsend faau message error !\nsend pcau message error !\n"
                       "send syst message error !\n");
    messages::agent agent(100);
    untp(1, "/x");
    faau("/x", "bob", 1);
    pcau("/x", "bob", 1);
    EXPECT_EQ(agent.drain(), 0u);
}

TEST_F(audit_messages, an_agent_that_went_without_a_word_stays_the_agent)
{
    {
        platform::netlink_peer agent(100);
        platform::netlink_send(messages::helo(), 100);
    }
    m.log();
    untp(1, "/x");
    EXPECT_EQ(
        m.log(),
        "send  netlink failed ; rc = [-111]\nnetlink send audit msg error \nsend untp message error !\n");
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, 100u);
    // Its process id comes back: it hears of what happens from now on.
    platform::netlink_peer again(100);
    untp(2, "/x");
    EXPECT_TRUE(again.receive().has_value());
}

TEST_F(audit_messages, a_full_queue_is_waited_for_briefly_and_loses_one_record)
{
    messages::agent agent(100, 2);
    m.log();
    untp(1, "/x");
    untp(2, "/x");
    EXPECT_EQ(m.log(), "");
    using namespace std::chrono;
    const auto begin = steady_clock::now();
    untp(3, "/x");
    const auto waited = steady_clock::now() - begin;
    EXPECT_GE(waited, milliseconds(10));
    EXPECT_LT(waited, seconds(2));
    EXPECT_EQ(
        m.log(),
        "send  netlink failed ; rc = [-11]\nnetlink send audit msg error \nsend untp message error !\n");
    EXPECT_EQ(number_at(agent.next(), 16), 1u);
    EXPECT_EQ(number_at(agent.next(), 16), 2u);
    untp(4, "/x");
    EXPECT_EQ(number_at(agent.next(), 16), 4u);
}

TEST_F(audit_messages, survive_every_failed_allocation)
{
    messages::agent agent(100);
    struct {
        void (*send)(std::uint32_t);
        std::string error;
    } const cases[] = {
        {[](std::uint32_t i) { untp(i, "/x"); }, "send untp message error !\n"},
        {[](std::uint32_t i) { faau("/x", "bob", i); }, "send faau message error !\n"},
        {[](std::uint32_t i) { pcau("/x", "bob", i); }, "send pcau message error !\n"},
        {[](std::uint32_t i) { sorvanic_common_send_syst_message(static_cast<int>(i), 0); },
         "send syst message error !\n"},
    };
    std::uint32_t event_number = 0;
    for (const auto& c : cases) {
        const std::string logs[] = {"", "Failed to allocate socket buffer\nnetlink send audit msg error \n" +
                                            c.error};
        for (std::size_t n = 1; n <= 2; ++n) {
            m.log();
            platform::fail_call(platform::fault::allocation, n);
            c.send(++event_number);
            EXPECT_TRUE(platform::fault_fired());
            EXPECT_EQ(m.log(), logs[n - 1]) << c.error << n;
            EXPECT_EQ(agent.drain(), 0u);
        }
        platform::fail_call(platform::fault::allocation, 3);
        c.send(++event_number);
        EXPECT_FALSE(platform::fault_fired());
        EXPECT_EQ(agent.drain(), 1u);
    }
    platform::fail_call(platform::fault::allocation, 0);
    m.log();
    platform::fail_call(platform::fault::message_room, 1);
    untp(0xffff, "/x");
    EXPECT_EQ(m.log(), "netlink send audit msg error \nsend untp message error !\n");
    EXPECT_EQ(agent.drain(), 0u);
}

TEST_F(audit_messages, a_message_is_padded_with_zeros_that_its_length_does_not_count)
{
    platform::netlink_peer peer(55);
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit("abcde", 5, 22, 3, 55), 0);
    EXPECT_EQ(peer.receive(),
              number(21) + number(22 | 3 << 16) + number(0) + number(55) + "abcde" + std::string(3, '\0'));
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit(nullptr, 5, 22, 0, 55), 0);
    EXPECT_EQ(peer.receive(), number(16) + number(22) + number(0) + number(55));
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit("abcde", 0, 22, 0, 55), 0);
    EXPECT_EQ(peer.receive()->size(), 16u);
    platform::fail_call(platform::fault::message_room, 1);
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit("abcde", 5, 22, 0, 55), -90);
    EXPECT_EQ(peer.receive(), std::nullopt);
}

TEST(audit_without_socket, fails_quietly)
{
    machine m;
    platform::fail_call(platform::fault::netlink_create, 1);
    EXPECT_EQ(m.load(), 0);
    EXPECT_EQ(sorvanic_kernel_socket_send_audit("x", 1, 8), -1);
    EXPECT_EQ(sorvanic_kernel_socket_inside_send_audit("x", 1, 22, 0, 100), -1);
    EXPECT_EQ(m.log(), "");
}

} // namespace
