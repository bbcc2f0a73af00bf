#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tests/e2e/session_fixture.h"

// A session at a terminal, typed at by a user.

namespace e2e {

namespace {

/// A pseudo-terminal with a command at it.
class terminal {
public:
    explicit terminal(const command& run)
    {
        std::vector<char*> arguments;
        for (const std::string& argument : run)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        const winsize size = {24, 80, 0, 0};
        pid_ = forkpty(&fd_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            setenv("PS1", "ready> ", 1);
            setenv("TERM", "dumb", 1);
            execv(arguments[0], arguments.data());
            _exit(124);
        }
    }
    ~terminal()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(fd_);
    }
    terminal(const terminal&) = delete;
    terminal& operator=(const terminal&) = delete;

    void type(const std::string& text) const
    {
        [[maybe_unused]] const ssize_t written = write(fd_, text.data(), text.size());
    }

    void resize(unsigned short rows, unsigned short columns) const
    {
        const winsize size = {rows, columns, 0, 0};
        ioctl(fd_, TIOCSWINSZ, &size);
    }

    /// Waits for `text` on the screen, behind what was waited for before.
    bool shows(const std::string& text)
    {
        const bool found = eventually([&] {
            shows_more();
            return screen_.find(text, seen_) != std::string::npos;
        });
        if (found)
            seen_ = screen_.find(text, seen_) + text.size();
        return found;
    }

    /// Exit status as a shell tells it, -1 when it did not end in time.
    int wait()
    {
        int status = 0;
        if (!eventually([&] {
                shows_more();
                return waitpid(pid_, &status, WNOHANG) == pid_;
            }))
            return -1;
        pid_ = 0;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    const std::string& screen() const { return screen_; }

private:
    void shows_more()
    {
        pollfd state = {fd_, POLLIN, 0};
        char buffer[4096];
        while (poll(&state, 1, 0) > 0) {
            const ssize_t got = read(fd_, buffer, sizeof buffer);
            if (got <= 0)
                break;
            screen_.append(buffer, static_cast<std::size_t>(got));
        }
    }

    pid_t pid_ = 0;
    int fd_ = -1;
    std::string screen_;
    std::size_t seen_ = 0;
};

struct at_terminal : session_test {
    at_terminal() { is_told = true; }

    command interactive()
    {
        victim("exit_with");
        of_machine("sleep");
        of_machine("stty");
        return {of_machine("bash"), "--norc", "--noediting", "-i"};
    }
};

TEST_F(at_terminal, a_shell_inside_a_session_has_job_control)
{
    terminal user(session(interactive()));
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    // The job says when it is there; what is typed does not contain that word.
    user.type("bash -c 'echo st\"\"arted; exec sleep 100'\n");
    ASSERT_TRUE(user.shows("started")) << user.screen();
    user.type("\x1a");
    ASSERT_TRUE(user.shows("Stopped")) << user.screen();
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    user.type("fg\n");
    ASSERT_TRUE(user.shows("sleep 100")) << user.screen();
    usleep(100'000);
    user.type("\x03");
    user.type("echo status $?\n");
    ASSERT_TRUE(user.shows("status 130")) << user.screen();

    user.type("sleep 100 &\n");
    ASSERT_TRUE(user.shows("[1] ")) << user.screen();
    user.type("kill %1; wait %1; echo status $?\n");
    ASSERT_TRUE(user.shows("status 143")) << user.screen();

    user.resize(33, 77);
    user.type("stty size\n");
    ASSERT_TRUE(user.shows("33 77")) << user.screen();

    user.type((directory() / "exit_with").string() + " 4; echo status $?\n");
    ASSERT_TRUE(user.shows("status 4")) << user.screen();
    user.type("exit 6\n");
    EXPECT_EQ(user.wait(), 6) << user.screen();
}

TEST_F(at_terminal, is_a_job_of_the_shell_around_it)
{
    const command bash = interactive();
    const command run = session({of_machine("sleep"), "100"});
    std::string line;
    for (const std::string& word : run)
        line += "'" + word + "' ";
    terminal user(bash);
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    for (int i = 0; i < 5; ++i) {
        user.type(line + "\n");
        ASSERT_TRUE(eventually([&] { return !kernel_log().empty(); }));
        usleep(200'000);
        user.type("\x1a");
        ASSERT_TRUE(user.shows("Stopped")) << user.screen();
        ASSERT_TRUE(user.shows("ready> ")) << user.screen();
        user.type("fg\n");
        ASSERT_TRUE(user.shows("sorvanic")) << user.screen();
        usleep(100'000);
        user.type("\x03");
        user.type("echo status $?\n");
        ASSERT_TRUE(user.shows("status 130")) << user.screen();
    }
    user.type("exit\n");
    EXPECT_EQ(user.wait(), 0) << user.screen();
}

TEST_F(at_terminal, one_stop_character_lets_a_program_put_its_screen_away_and_stops_it)
{
    const command bash = interactive();
    // What it does for that has to be decided.
    const std::string program = "trap 'for i in 1 2 3 4 5 6 7 8; do : < /dev/null; done; "
                                "echo screen put away; trap - TSTP; kill -TSTP 0' TSTP; "
                                "trap 'echo screen drawn again' CONT; "
                                "echo started; while :; do : < /dev/null; done";
    std::ofstream(directory() / "program") << program;
    std::string line;
    for (const std::string& word : session({of_machine("bash"), (directory() / "program").string()}))
        line += "'" + word + "' ";
    terminal user(bash);
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    user.type(line + "\n");
    ASSERT_TRUE(user.shows("started")) << user.screen();
    user.type("\x1a");
    ASSERT_TRUE(user.shows("screen put away")) << user.screen();
    ASSERT_TRUE(user.shows("Stopped")) << user.screen();
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    user.type("fg\n");
    ASSERT_TRUE(user.shows("screen drawn again")) << user.screen();
    user.type("\x03");
    ASSERT_TRUE(user.shows("ready> ")) << user.screen();
    user.type("echo status $?\n");
    ASSERT_TRUE(user.shows("status 130")) << user.screen();
}

TEST_F(at_terminal, tells_refusals_unless_quiet)
{
    const fs::path start = victim("start_program");
    const fs::path bad = unlisted("un\033[31mlisted", read_file(victim("exit_with")) + "x");
    const std::string told =
        ") execute " + (directory() / "un\\x1B[31mlisted").string() + ": no list has this program\r\n";

    terminal user(session({start, "fork", bad}));
    EXPECT_EQ(user.wait(), 0);
    EXPECT_NE(user.screen().find(told), std::string::npos) << user.screen();
    EXPECT_NE(user.screen().find("sorvanic: refused: start_program (pid "), std::string::npos)
        << user.screen();

    const std::string twice = start.string() + " fork '" + bad.string() + "'; ";
    terminal again(session(shell(twice + twice)));
    EXPECT_EQ(again.wait(), 0);
    EXPECT_TRUE(again.screen().ends_with("sorvanic: 2 refusals of 1 kind; sorvanic why shows them\r\n"))
        << again.screen();

    terminal quiet(session({start, "fork", bad}, {"--quiet"}));
    EXPECT_EQ(quiet.wait(), 0);
    EXPECT_EQ(quiet.screen(), "error 1\r\n");
}

TEST_F(at_terminal, tells_what_is_left_running_and_ends_it_on_demand)
{
    terminal user(session(shell("sleep 100 & exit 3")));
    ASSERT_TRUE(user.shows("waiting for the processes that it has left (Ctrl-C ends them)")) << user.screen();
    user.type("\x03");
    EXPECT_EQ(user.wait(), 3);
}

} // namespace

TEST_F(at_terminal, decides_while_the_screen_is_stopped)
{
    const fs::path bad = unlisted("unlisted", read_file(victim("exit_with")) + "x");
    const fs::path done = directory() / "done";
    of_machine("sleep");
    const std::string script =
        "sleep 0.3; for i in 1 2 3; do '" + bad.string() + "'; done 2>/dev/null; : >" + done.string();
    terminal user(session(shell(script)));
    user.type("\x13");
    EXPECT_TRUE(eventually([&] { return fs::exists(done); }));
    EXPECT_EQ(user.screen().find("refused"), std::string::npos);
    user.type("\x11");
    EXPECT_EQ(user.wait(), 0);
    EXPECT_TRUE(user.shows("3 refusals of 1 kind")) << user.screen();
}

} // namespace e2e
