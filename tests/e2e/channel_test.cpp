#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "tests/e2e/session_fixture.h"

#include "tests/support/machine.h"
#include "tests/support/netlink_socket.h"

// Sessions and those who talk to them, by a client that shares no code with us.

namespace e2e {

namespace {

class session_channel : public session_test {
protected:
    session_channel() : python(of_machine("python3")) {}

    /// A command that waits for a file "go", then does `then`.
    command waiting(const std::string& then)
    {
        return shell("until [ -e go ]; do sleep 0.02; done; " + then);
    }
    void let_go() const { std::ofstream(directory() / "go") << "go"; }

    /// Whether the status comes to show this.
    bool shows(const std::string& text) const
    {
        return eventually([&] { return status_file("session.json").find(text) != std::string::npos; });
    }

    /// For a client that must know the port before its session is there.
    static std::string free_port()
    {
        const auto found = support::free_netlink_port();
        if (!found)
            throw std::runtime_error("no netlink port is free");
        return std::to_string(*found);
    }

    const fs::path python;
};

TEST_F(session_channel, records_and_answers_reach_a_foreign_client)
{
    encoded("auditlabel", "5:2\n");
    unlisted("a", "#!/nowhere\n#a");
    unlisted("b", "#!/nowhere\n#b");
    child_process supervisor(
        session(waiting("./a; ./a; ./b; ./a; until [ -e end ]; do sleep 0.02; done"), {"--user", "bob"}),
        directory());
    child_process agent(
        client({"helo", "reload:0x400", "read:1", "login:eve:1", "read:1", "read:3", "quit"}, port()),
        beside());
    EXPECT_TRUE(shows("\"connected\":true,\"pid\":" + std::to_string(agent.pid()) + "}"));
    EXPECT_TRUE(shows("{\"name\":\"whitelist\",\"entries\":3,\"generation\":2}"));
    EXPECT_TRUE(shows("\"channel\":{\"handled\":4,"));
    let_go();
    const outcome told = agent.wait();
    EXPECT_EQ(told.err, "");
    const auto untp = [&](const std::string& name) {
        std::ostringstream key;
        key << std::hex << std::setw(8) << std::setfill('0')
            << support::key_of(read_file(directory() / name));
        return R"("kind": "untp", "key": ")" + key.str() + R"(", "path": ")" + (directory() / name).string() +
               R"(", "process": "sh", "reserved": 0, "class": 4})" + "\n";
    };
    const std::string head = R"("type": 19, "sequence": 0, "to_me": true, )";
    const std::string refused = R"({"bytes": 2076, "length": 2076, )" + head;
    EXPECT_EQ(told.out, R"({"bytes": 56, "length": 56, )" + head +
                            R"("kind": "plau", "user": "SYSTEM", "mask": 1024, "result": 1})"
                            "\n"
                            R"({"bytes": 16, "length": 16, "type": 22, "sequence": 0, "to_me": true})"
                            "\n" +
                            refused + untp("a") + refused + untp("b") + refused + untp("a"));
    EXPECT_TRUE(shows("\"" + std::to_string(agent.pid()) + "\":4"));
    EXPECT_TRUE(shows("\"refusals\":4,")); // the last one is told of before it is counted
    const std::string shown = status_file("session.json");
    EXPECT_NE(shown.find("\"fail_open\":0,"), shown.npos) << shown;
    EXPECT_NE(shown.find("\"agent\":{\"connected\":false,\"pid\":0}"), shown.npos) << shown;
    EXPECT_NE(shown.find("\"records\":{\"dropped\":0,\"suppressed\":1}"), shown.npos) << shown;
    std::ofstream(directory() / "end") << "end";
    EXPECT_EQ(supervisor.wait().status, 0);
}

/// So many that reading them takes a while.
std::string many_keys()
{
    std::string keys(60'000 * 4, '\0');
    for (std::size_t i = 0; i < keys.size(); ++i)
        keys[i] = static_cast<char>(i * i >> 7 ^ i % 251);
    return keys;
}

TEST_F(session_channel, an_exec_waits_for_the_reload_asked_for_before_it)
{
    const fs::path tool = listed("tool", "#!/nowhere\n");
    session({}, {}); // writes the policy
    const std::string keys = many_keys();
    std::ofstream(directory() / "with", std::ios::binary) << keys << read_file(policy() / "whitelist");
    std::ofstream(directory() / "without", std::ios::binary) << keys;
    command steps;
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        for (const bool is_listed : {false, true}) {
            const fs::path list = directory() / (is_listed ? "with" : "without");
            steps.push_back("copy:" + list.string() + ":" + (policy() / "whitelist").string());
            // By the parent of who execs, or by itself.
            if (i % 2 == 0)
                steps.insert(steps.end(), {"reload:0x400", "run:" + tool.string()});
            else
                steps.push_back("run:" + tool.string() + ":0x400");
            expected +=
                is_listed ? "{\"run\": 2}\n" : "{\"run\": 1}\n"; // its interpreter is missing, or EPERM
        }
    }
    const std::string port = free_port();
    // By its name one of those that may change the policy.
    command tool_of_product = client(steps, port);
    tool_of_product[1] = listed("sorvadd", "#!" + python.string() + "\n" + read_file(tool_of_product[1]));
    tool_of_product.erase(tool_of_product.begin());
    const outcome result = run_session(tool_of_product, {"--channel-port", port, "--channel-inside"});
    EXPECT_EQ(result.out, expected) << result.err;
}

TEST_F(session_channel, decides_every_event_by_whole_switches)
{
    const fs::path closed = directory() / "closed";
    fs::create_directory(closed);
    std::ofstream(closed / "file") << "text\n";
    encoded("dirctl", closed.string() + "\n");
    const fs::path program = unlisted("program", read_file(victim("exit_with")) + "x");
    const fs::path until = directory() / "until";
    child_process supervisor(session({victim("try_meanwhile"), program, closed / "file", until}),
                             directory());
    const std::string switches = ":0x280"; // statlabel and modllabel
    child_process agent(client({"reload-while:" + until.string() + switches}, port()), beside());
    EXPECT_EQ(supervisor.wait(180s).out, "allowed 0\n");
    EXPECT_EQ(agent.wait().err, "");
    EXPECT_GT(count_of(kernel_log(), "Response Policy Request Success"), 100u);
}

TEST_F(session_channel, goes_on_when_tasks_end_while_their_requests_wait)
{
    const std::string port = free_port();
    const command supervised = session({python, script("request_storm.py"), port, "150"},
                                       {"--channel-port", port, "--channel-inside"});
    std::ofstream(policy() / "whitelist", std::ios::binary | std::ios::app) << many_keys();
    const outcome result = child_process(supervised, directory()).wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "done\n");
    EXPECT_GT(count_of(kernel_log(), "Username [bob]"), 0u); // some are killed before they have asked
}

TEST_F(session_channel, hears_only_those_who_may_talk)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "other users can be had by root only";
    const struct {
        uid_t supervisor;
        bool inside;
        bool client_is_nobody;
        command options;
        bool heard;
    } cases[] = {
        {0, false, false, {}, true},
        {0, true, false, {}, true},
        {0, false, true, {}, false},
        {0, true, true, {}, false},
        {0, true, true, {"--channel-inside"}, false},
        {0, false, true, {"--channel-uid", "1", "--channel-uid", "65534"}, true},
        {0, true, true, {"--channel-uid", "65534"}, false},
        {0, true, true, {"--channel-uid", "65534", "--channel-inside"}, true},
        {nobody, false, false, {}, true},
        {nobody, false, true, {}, true},
        {nobody, true, false, {}, false},
        {nobody, true, false, {"--channel-inside"}, true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        fs::remove_all(directory() / "state");
        fs::remove(directory() / "go");
        const std::string at = free_port();
        command line = client({"helo", "quit"}, at);
        if (one.client_is_nobody)
            line = as_nobody(line);
        std::string inside = "true";
        for (const std::string& word : line)
            inside += one.inside ? (&word == &line[0] ? "; " : " ") + word : "";
        command options = {"--channel-port", at};
        options.insert(options.end(), one.options.begin(), one.options.end());
        child_process supervisor(session(waiting(inside), options), directory(), one.supervisor);
        port();
        if (!one.inside) {
            EXPECT_EQ(child_process(line, beside()).wait().status, 0);
        }
        let_go();
        supervisor.wait();
        EXPECT_TRUE(shows(one.heard ? "\"channel\":{\"handled\":2,\"dropped\":0,\"lost\":0}"
                                    : "\"channel\":{\"handled\":0,\"dropped\":2,\"lost\":0}"))
            << status_file("session.json");
    }
}

TEST_F(session_channel, keeps_the_place_of_an_agent_that_ended_without_quit)
{
    unlisted("a", "#!/nowhere\n");
    child_process supervisor(session(waiting("./a")), directory());
    const pid_t first = [&] {
        child_process agent(client({"helo"}, port()), beside());
        agent.wait();
        return agent.pid();
    }();
    EXPECT_TRUE(shows("\"handled\":1"));
    EXPECT_EQ(child_process(client({"helo"}, port()), beside()).wait().status, 0);
    EXPECT_TRUE(shows("\"handled\":2"));
    let_go();
    supervisor.wait();
    const std::string log = kernel_log();
    EXPECT_NE(log.find("Process [" + std::to_string(first) + "] Exist,Process ["), log.npos) << log;
    EXPECT_NE(log.find("send  netlink failed ; rc = [-111]\nnetlink send audit msg error \n"
                       "send untp message error !\n"),
              log.npos)
        << log;
}

TEST_F(session_channel, keeps_queued_records_when_the_queue_is_full)
{
    constexpr std::size_t programs = 80; // more than a queue of the default size takes
    for (std::size_t i = 0; i < programs; ++i)
        unlisted("p" + std::to_string(i), "#!/nowhere\n#" + std::to_string(i));
    child_process supervisor(
        session(waiting("i=0; while [ $i -lt 80 ]; do ./p$i; i=$((i+1)); done 2>/dev/null; echo done")),
        directory());
    child_process agent(client({"helo", "drain", "quit"}, port()), beside());
    EXPECT_TRUE(shows("\"connected\":true"));
    agent.send(SIGSTOP);
    let_go();
    EXPECT_EQ(supervisor.wait(20s).out, "done\n");
    agent.send(SIGCONT);
    const std::size_t received = count_of(agent.wait().out, "\"untp\"");
    const std::size_t lost = count_of(kernel_log(), "send  netlink failed ; rc = [-11]\n");
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(received + lost, programs);
    EXPECT_NE(status_file("session.json").find("\"records\":{\"dropped\":" + std::to_string(lost) + ","),
              std::string::npos);
}

TEST_F(session_channel, its_processes_find_it_and_cannot_forge_its_status)
{
    const fs::path tool = listed("tool", read_file(SORVANIC_PROGRAM));
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // that traces
    const std::string state = (directory() / "state").string();
    const outcome result = run_session(shell("set -x; " + tool.string() + " reload whitelist --state " +
                                             state + " && echo done; echo 1 >" + state +
                                             "/status/port; read line <" + state + "/kernel.log"),
                                       {"--channel-inside"});
    EXPECT_EQ(count_of(result.out, "done\n"), 1u) << result.out << result.err;
    EXPECT_EQ(count_of(result.err, "status/port: Operation not permitted"), 1u) << result.err;
    EXPECT_EQ(count_of(result.err, "kernel.log: Operation not permitted"), 1u) << result.err;
    EXPECT_NE(status_file("port"), "1\n");
}

TEST_F(session_channel, a_port_and_a_state_directory_belong_to_one_session)
{
    const std::string taken = free_port();
    child_process supervisor(session(waiting("true"), {"--channel-port", taken}), directory());
    EXPECT_EQ(port(), taken);
    const auto second = [&](const command& options) {
        const outcome result = child_process(session(waiting("true"), options), beside()).wait();
        EXPECT_EQ(result.status, 125);
        return result.err;
    };
    EXPECT_EQ(second({}), "sorvanic: another session has the state directory " +
                              (directory() / "state").string() + "; end it or name another with --state\n");
    EXPECT_EQ(second({"--state", directory() / "other", "--channel-port", taken}),
              "sorvanic: channel port " + taken +
                  ": Address already in use; name another with --channel-port, or "
                  "none\n");
    EXPECT_EQ(port(), taken);
    let_go();
    EXPECT_EQ(supervisor.wait().status, 0);
    // What a session has left in it is in nobody's way.
    EXPECT_EQ(child_process(session(shell("true")), beside()).wait().status, 0);
}

} // namespace

} // namespace e2e
