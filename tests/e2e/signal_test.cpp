#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <fstream>

#include "tests/e2e/session_fixture.h"

// Signals to those that are protected, and to the supervisor; changes of the clock; calls of programs
// that signals keep hitting.

namespace e2e {

namespace {

const command every_call = {
    "kill", "tkill", "tgkill", "rt_sigqueueinfo", "rt_tgsigqueueinfo", "pidfd_send_signal", "descriptor"};

struct signals : session_test {
    signals() { victim("send_signal"); }

    /// Starts `program` in the background as $NAME, its output going to NAME.out, and waits until it
    /// is ready.
    static std::string start(const std::string& name, const std::string& program)
    {
        return program + " > " + name + ".out & " + name + "=$!; until [ -s " + name +
               ".out ]; do sleep 0.02; done; ";
    }

    std::string every_call_to(const std::string& target, int signal) const
    {
        std::string steps;
        for (const std::string& call : every_call)
            steps += "./send_signal " + call + " " + target + " " + std::to_string(signal) + "; ";
        return steps;
    }

    static std::string every_call_gives(int error)
    {
        std::string out;
        for (const std::string& call : every_call)
            out += call + " " + std::to_string(error) + "\n";
        return out;
    }

    outcome run(const std::string& script, uid_t user)
    {
        for (const char* left :
             {"end", "sender", "one.out", "two.out", "lone.out", "agent.out", "next.out", "pid", "pkill.err"})
            fs::remove(directory() / left);
        return run_session(shell(script, {"pkill"}), {}, user);
    }

    std::string output_of(const std::string& name) const { return read_file(directory() / (name + ".out")); }
};

TEST_F(signals, spares_a_protected_process_and_not_its_group)
{
    const fs::path program = victim("take_signals");
    unlisted("member", read_file(program));
    encoded("ptpylist", "take_signals\n");
    for (const uid_t user : users()) {
        SCOPED_TRACE(user);
        const std::string tree =
            start("one", "./take_signals") + start("two", "./member $one") + start("lone", "./member");
        status = "3";
        outcome result =
            run(tree + every_call_to("$one", SIGUSR1) + every_call_to("$one", SIGKILL) +
                    "echo $one > pid; pkill -KILL -F pid 2> pkill.err; echo pkill $?; "
                    // The member of its group gets it, in the sender's name.
                    "./send_signal kill -$one 10; sleep 0.2; ./send_signal kill -$lone 10; "
                    "sleep 0.2; ./send_signal pidfd_send_signal $lone 10; ./send_signal kill -$one 15; "
                    "./send_signal kill -$one 15; > end; wait $two; echo $?; wait $one; echo $?",
                user);
        EXPECT_EQ(result.out, every_call_gives(EPERM) + every_call_gives(EPERM) +
                                  "pkill 1\nkill 0\nkill 0\npidfd_send_signal 0\nkill 0\nkill 1\n143\n0\n")
            << result.err;
        EXPECT_EQ(output_of("one"), "ready\n");
        EXPECT_EQ(output_of("two"), "ready\nqueued by the sender\n");
        EXPECT_EQ(output_of("lone"), "ready\nsent by the sender\nqueued by the sender\n");

        status = "2";
        result = run(
            tree + "for call in kill tkill tgkill rt_sigqueueinfo rt_tgsigqueueinfo pidfd_send_signal "
                   "descriptor; do "
                   "./take_signals > next.out & next=$!; ./send_signal $call $next 15; wait $next; echo $?; "
                   "done; ./take_signals > next.out & echo $! > pid; pkill -KILL -F pid; wait $!; echo $?; "
                   "./send_signal kill -$one 15; wait $two; echo $?; wait $one; echo $?; > end",
            user);
        std::string died;
        for (const std::string& call : every_call)
            died += call + " 0\n143\n";
        EXPECT_EQ(result.out, died + "137\nkill 0\n143\n143\n") << result.err;
    }
}

TEST_F(signals, the_agent_takes_only_its_own_signals)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to give the agent its path";
    fs::create_directories(root() / "usr/sorvanic");
    fs::rename(victim("take_signals"), root() / "usr/sorvanic/sorvagent");
    const std::string tree = start("agent", "/usr/sorvanic/sorvagent");
    const auto run_in_root = [&](const std::string& script) {
        for (const char* left : {"end", "agent.out", "state"})
            fs::remove_all(directory() / left);
        return child_process(in_root(session(shell(script))), directory()).wait();
    };
    outcome result = run_in_root(tree + every_call_to("$agent", SIGKILL) + every_call_to("$agent", 0) +
                                 "./send_signal kill -$agent 15; ./send_signal kill $agent 10; sleep 0.1; "
                                 "> end; wait $agent; echo $?");
    EXPECT_EQ(result.out, every_call_gives(EPERM) + every_call_gives(EPERM) + "kill 1\nkill 0\n0\n")
        << result.err;
    EXPECT_EQ(output_of("agent"), "ready\nsent by the sender\n");
    status = "2";
    result = run_in_root(tree + "./send_signal kill -$agent 15; wait $agent; echo $?");
    EXPECT_EQ(result.out, "kill 0\n143\n") << result.err;
}

TEST_F(signals, the_supervisor_cannot_be_ended_from_inside)
{
    for (const uid_t user : users()) {
        SCOPED_TRACE(user);
        // The shell's parent is in its process group. -1 is everybody: only asked about.
        const outcome result =
            run(every_call_to("$PPID", SIGKILL) + every_call_to("$PPID", 0) +
                    "./send_signal tgkill 999999999 0; ./send_signal kill -1 0; "
                    "trap 'echo got it' USR1; ./send_signal kill $$ 10; kill -USR1 0; echo on",
                user);
        EXPECT_EQ(result.out.substr(0, result.out.find("tgkill 3")),
                  every_call_gives(EPERM) + every_call_gives(EPERM));
        EXPECT_EQ(result.out.substr(result.out.find("tgkill 3")),
                  "tgkill 3\nkill 0\nkill 0\ngot it\ngot it\non\n")
            << result.err;
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(signals, reports_a_change_of_the_clock)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (clock_settime(CLOCK_REALTIME, &now) != 0)
        GTEST_SKIP() << "this machine does not let the test set its clock";
    child_process supervisor(
        session(shell("until [ -e go ]; do sleep 0.02; done; exec python3 -c 'import time; "
                      "t = time.clock_gettime_ns(0); time.clock_settime_ns(0, t); print(t // 10**9)'",
                      {"python3"})),
        directory());
    child_process agent(client({"helo", "read:1", "quit"}, port()), beside());
    const std::string connected = "\"connected\":true";
    EXPECT_TRUE(eventually([&] { return status_file("session.json").find(connected) != std::string::npos; }));
    std::ofstream(directory() / "go") << "go";
    const outcome result = supervisor.wait();
    const std::string seconds = result.out.substr(0, result.out.find('\n'));
    const std::string told = agent.wait().out;
    EXPECT_NE(told.find("\"kind\": \"syst\", \"requested\": " + seconds + ", "), told.npos)
        << told << result.out << result.err;
}

TEST_F(signals, calls_that_wait_and_calls_at_their_edges_come_out_as_without_a_session)
{
    const struct {
        const char* script;
        const char* word; ///< stands so often in what it prints
        std::size_t count;
    } cases[] = {{"block_in_calls.py", "interrupted", 44}, {"edge_calls.py", " ended ", 13}};
    for (const auto& [name, word, count] : cases) {
        const command run = shell("exec python3 " + script(name).string(), {"python3"});
        for (const uid_t user : users()) {
            const outcome expected = child_process(run, directory(), user).wait();
            EXPECT_EQ(count_of(expected.out, word), count) << expected.out << expected.status << expected.err;
            for (const command& options : {command{}, command{"--every-io"}}) {
                const outcome result = run_session(run, options, user);
                EXPECT_EQ(result.out, expected.out) << user << options.size() << result.err;
            }
        }
    }
}

TEST_F(signals, calls_are_neither_done_twice_nor_interrupted_before_they_begin)
{
    const fs::path program = victim("storm_names");
    for (const uid_t user : users()) {
        for (const char* mode : {"", " restart"}) {
            const outcome result = run("exec ./storm_names 10000" + std::string(mode), user);
            EXPECT_EQ(result.out, "interrupted 0 redone 0\n") << user << mode << result.err;
        }
    }
}

} // namespace

} // namespace e2e
