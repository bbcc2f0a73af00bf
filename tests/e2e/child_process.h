#ifndef SORVANIC_TESTS_E2E_CHILD_PROCESS_H
#define SORVANIC_TESTS_E2E_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

using namespace std::chrono_literals;

struct outcome {
    int status; ///< as a shell tells it; -1 when it did not end in time
    std::string out;
    std::string err;
};

/// A program that a test has started, in a process group of its own, without input, its output
/// going to files in `directory`. The destructor ends it.
class child_process {
public:
    child_process(const std::vector<std::string>& command, std::filesystem::path directory, uid_t user = 0);
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal) const;
    outcome wait(std::chrono::milliseconds limit = 60s);

private:
    pid_t pid_;
    std::filesystem::path directory_;
    std::optional<outcome> ended_;
};

std::string read_file(const std::filesystem::path& path);

void pause_briefly();

/// Waits until `condition` holds, or the time is up; returns whether it does.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = 10s)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        pause_briefly();
    }
    return true;
}

} // namespace e2e

#endif
