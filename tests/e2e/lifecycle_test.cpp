#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "tests/e2e/session_fixture.h"

// Births, ends, signals and threads: as without a session.

namespace e2e {

namespace {

using lifecycle = session_test;

bool alive(pid_t process)
{
    // Not a zombie, either: nobody may have waited for it yet.
    const std::string stat = read_file("/proc/" + std::to_string(process) + "/stat");
    return !stat.empty() && stat.find(") Z") == std::string::npos;
}

pid_t pid_in(const fs::path& file)
{
    pid_t pid = 0;
    std::ifstream(file) >> pid;
    return pid;
}

TEST_F(lifecycle, ends_every_process_when_the_supervisor_is_killed)
{
    victim("live_on");
    listed("again", "#!" + of_machine("sh").string() + "\nexec ./again\n");
    unlisted("unknown", "#!" + of_machine("sh").string() + "\necho > ran\n");
    const std::string script = "mkfifo fifo; sleep 100 & setsid sleep 100 & (: < fifo) & "
                               "(trap '' HUP INT TERM; while :; do :; done) & "
                               "(while :; do ./unknown; done) 2> /dev/null & "
                               "sleep 100 & kill -STOP $!; ./again & ./live_on 4; echo > all; wait";
    for (int i = 0; i < 3; ++i) {
        for (const uid_t user : users()) {
            // Every process of the tree holds the pipe open.
            int ends[2];
            ASSERT_EQ(pipe(ends), 0);
            const int end = fcntl(ends[0], F_DUPFD_CLOEXEC, 0);
            close(ends[0]);
            for (const char* left : {"state", "fifo", "all"})
                fs::remove_all(directory() / left);
            child_process supervisor(session(shell(script, {"mkfifo", "setsid"})), directory(), user);
            close(ends[1]);
            EXPECT_TRUE(eventually([&] { return fs::exists(directory() / "all"); }));
            usleep(static_cast<unsigned>(i) * 3700);
            pollfd closed = {end, 0, 0};
            EXPECT_EQ(poll(&closed, 1, 0), 0);
            supervisor.send(SIGKILL);
            EXPECT_EQ(supervisor.wait().status, 128 + SIGKILL);
            EXPECT_EQ(poll(&closed, 1, 10'000), 1) << "something holds on";
            kill(-supervisor.pid(), SIGKILL);
            close(end);
        }
    }
    EXPECT_FALSE(fs::exists(directory() / "ran"));
}

TEST_F(lifecycle, lasts_as_long_as_its_last_process)
{
    const outcome result =
        run_session(shell("setsid sh -c 'sleep 0.3; echo late > log' & exit 5", {"setsid"}));
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(read_file(directory() / "log"), "late\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(lifecycle, passes_signals_on_to_the_command)
{
    const fs::path ready = directory() / "ready";
    for (const int signal : {SIGTERM, SIGHUP}) {
        const std::string number = std::to_string(signal);
        child_process supervisor(
            session(shell("trap 'exit 9' " + number + "; echo > ready; while :; do sleep 0.02; done")),
            directory());
        ASSERT_TRUE(eventually([&] { return fs::exists(ready); }));
        supervisor.send(SIGINT); // of the terminal, which sends it to the command as well
        supervisor.send(signal);
        EXPECT_EQ(supervisor.wait(10s).status, 9) << number;
        fs::remove(ready);
    }
}

TEST_F(lifecycle, a_process_stops_and_goes_on_when_told)
{
    const fs::path self = directory() / "self";
    child_process supervisor(session(shell("echo $$ > self; while :; do echo x >> log; sleep 0.01; done")),
                             directory());
    const auto size = [&] { return read_file(directory() / "log").size(); };
    ASSERT_TRUE(eventually([&] { return size() > 0; }));
    for (const int signal : {SIGSTOP, SIGTSTP}) {
        kill(pid_in(self), signal);
        usleep(100'000);
        const std::size_t stopped_at = size();
        usleep(200'000);
        EXPECT_EQ(size(), stopped_at);
        kill(pid_in(self), SIGCONT);
        EXPECT_TRUE(eventually([&] { return size() > stopped_at; }));
    }
    kill(pid_in(self), SIGTERM);
    EXPECT_EQ(supervisor.wait().status, 128 + SIGTERM);
}

TEST_F(lifecycle, a_signal_during_the_start_ends_the_session)
{
    const command run = session({victim("exit_with"), "3"});
    for (unsigned delay = 0; delay < 30'000; delay += 500) {
        child_process supervisor(run, directory());
        usleep(delay);
        kill(-supervisor.pid(), SIGINT);
        const int ended = supervisor.wait(10s).status;
        EXPECT_TRUE(ended == 128 + SIGINT || ended == 3) << ended;
    }
}

TEST_F(lifecycle, a_signal_ends_what_a_command_left_behind)
{
    const fs::path left = directory() / "left";
    for (const int signal : {SIGINT, SIGTERM}) {
        child_process supervisor(
            session(shell("(trap '' INT TERM; sh -c 'echo $PPID' > left; sleep 100) & exit 3")), directory());
        ASSERT_TRUE(eventually([&] { return pid_in(left) != 0; }));
        usleep(100'000); // until the command itself has ended
        supervisor.send(signal);
        if (signal == SIGTERM) { // which is passed on, and ignored
            usleep(100'000);
            EXPECT_TRUE(alive(pid_in(left)));
            supervisor.send(signal);
        }
        EXPECT_EQ(supervisor.wait(8s).status, 3);
        EXPECT_FALSE(alive(pid_in(left)));
        fs::remove(left);
    }
}

TEST_F(lifecycle, the_end_of_the_session_catches_processes_being_born)
{
    victim("live_on");
    const fs::path alone = directory() / "alone";
    for (int i = 0; i < 3; ++i) {
        child_process supervisor(session(shell("./live_on 16; echo > alone")), directory());
        ASSERT_TRUE(eventually([&] { return fs::exists(alone); }));
        usleep(100'000); // until the command itself has ended
        supervisor.send(SIGINT);
        EXPECT_EQ(supervisor.wait(8s).status, 0);
        fs::remove(alone);
    }
}

TEST_F(lifecycle, sigterm_reaches_every_process_and_the_last_ones_are_killed)
{
    const fs::path ready = directory() / "ready";
    const std::string script =
        "(trap 'echo a >> log; exit' TERM; while :; do sleep 0.02; done) & "
        "setsid sh -c 'trap \"echo b >> log; exit\" TERM; while :; do sleep 0.02; done' & "
        "(trap '' TERM; while :; do sleep 0.02; done) & "
        "trap 'echo c >> log; exit 7' TERM; sleep 0.5; echo > ready; "
        "while :; do sleep 0.02; done";
    child_process supervisor(session(shell(script, {"setsid"}), {"--stop-timeout", "1"}), directory());
    ASSERT_TRUE(eventually([&] { return fs::exists(ready); }));
    supervisor.send(SIGTERM);
    EXPECT_EQ(supervisor.wait(8s).status, 7);
    const std::string log = read_file(directory() / "log");
    for (const char* each : {"a\n", "b\n", "c\n"})
        EXPECT_EQ(count_of(log, each), 1u) << log;
}

TEST_F(lifecycle, a_second_sigterm_kills_at_once)
{
    const fs::path ready = directory() / "ready";
    child_process supervisor(
        session(shell("trap '' TERM; echo > ready; while :; do sleep 0.02; done"), {"--stop-timeout", "100"}),
        directory());
    ASSERT_TRUE(eventually([&] { return fs::exists(ready); }));
    supervisor.send(SIGTERM);
    usleep(300'000);
    supervisor.send(SIGTERM);
    EXPECT_EQ(supervisor.wait(8s).status, 128 + SIGKILL);
}

TEST_F(lifecycle, a_process_can_be_reaped_once_its_pidfd_is_readable)
{
    const outcome result = run_session({victim("wait_by_handle"), "2000"});
    EXPECT_EQ(result.out, "0 too early\n");
}

TEST_F(lifecycle, decides_and_does_an_exec_under_signals_once)
{
    const fs::path log = directory() / "log";
    const fs::path program = unlisted("logs", read_file(victim("log_program")) + "g");
    // Observing, a program on the black list runs, and each decision leaves a line.
    blacklist(program);
    status = "2";
    const outcome result = run_session({victim("signal_storm"), "300", program, log});
    EXPECT_EQ(result.out, "succeeded 300 interrupted 0 failed 0\n");
    EXPECT_EQ(read_file(log).size(), 300u * 2);
    EXPECT_EQ(count_of(kernel_log(), program.string() + " is in blacklist \n"), 300u);
}

TEST_F(lifecycle, lets_the_child_of_a_killed_parent_go_on)
{
    const outcome result = run_session({victim("fork_from_threads"), "150"});
    EXPECT_EQ(result.out, "done\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(lifecycle, the_command_gets_the_callers_signals_and_limits)
{
    const command show =
        shell("grep -E '^(Sig(Blk|Ign|Cgt)|NoNewPrivs)' /proc/self/status; ulimit -Sn", {"grep"});
    child_process bare(show, directory());
    std::string expected = bare.wait().out;
    // Without rights, a filter is to be had with no_new_privs only.
    if (const auto at = expected.find("NoNewPrivs:\t0"); at != std::string::npos && geteuid() != 0)
        expected[at + 12] = '1';
    const outcome result = run_session(show);
    EXPECT_EQ(result.out, expected);
}

} // namespace

} // namespace e2e
