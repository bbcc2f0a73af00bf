#include "tests/e2e/child_process.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

namespace e2e {

void pause_briefly()
{
    std::this_thread::sleep_for(2ms);
}

std::string read_file(const std::filesystem::path& path)
{
    std::ostringstream text;
    if (std::filesystem::is_regular_file(path)) // a device may have no end
        text << std::ifstream(path).rdbuf();
    return text.str();
}

child_process::child_process(const std::vector<std::string>& command, std::filesystem::path directory,
                             uid_t user)
    : directory_(std::move(directory))
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto output = [&](const char* name) {
        return open((directory_ / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    };
    const int out = output("out");
    const int err = output("err");
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0);
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0))
            _exit(124);
        execvp(arguments[0], arguments.data());
        _exit(124);
    }
    for (const int fd : {in, out, err})
        close(fd);
}

child_process::~child_process()
{
    if (ended_)
        return;
    send(SIGKILL);
    wait();
}

void child_process::send(int signal) const
{
    kill(pid_, signal);
}

outcome child_process::wait(std::chrono::milliseconds limit)
{
    int status = 0;
    if (!eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, limit))
        return {-1, read_file(directory_ / "out"), read_file(directory_ / "err")};
    ended_ = {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
              read_file(directory_ / "out"), read_file(directory_ / "err")};
    return *ended_;
}

} // namespace e2e
