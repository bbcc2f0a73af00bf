#ifndef SORVANIC_TESTS_E2E_SESSION_FIXTURE_H
#define SORVANIC_TESTS_E2E_SESSION_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/e2e/child_process.h"
#include "tests/temporary_directory.h"

namespace e2e {

namespace fs = std::filesystem;

using command = std::vector<std::string>;

/// A directory, a policy that allows what `listed` names, and sessions under it. Skips, with the
/// reason, where the machine forbids tracing.
class session_test : public ::testing::Test {
protected:
    session_test();
    void SetUp() override;

    /// Makes a file in the test's directory that everybody may execute, and lists it.
    fs::path listed(const std::string& name, const std::string& content);
    fs::path unlisted(const std::string& name, const std::string& content);

    /// One of the tiny programs, listed, in the test's directory.
    fs::path victim(const std::string& name);

    /// Lists a program of the machine, found as a shell finds it, and returns its path.
    fs::path of_machine(const std::string& name);

    /// What has a shell run `script`, which needs these programs and sleep.
    command shell(const std::string& script, const command& tools = {});

    /// The same as an unprivileged user; only root can have that.
    command as_nobody(const command& run);

    /// Puts a program on another list: "blacklist" or "supertrustfile".
    void enlist(const std::string& list, const fs::path& program);
    void blacklist(const fs::path& program) { enlist("blacklist", program); }

    /// Writes a policy file in its encoded form.
    void encoded(const std::string& name, const std::string& text);

    /// The command line of a session with `options` that runs `run`.
    command session(const command& run, const command& options = {});

    /// A directory that in_root makes the root of whatever it runs, and that command line. What root() lacks
    /// of the machine's directories is mounted there. For programs whose paths are fixed; needs root.
    fs::path root() const { return directory_ / "root"; }
    command in_root(const command& run) const;

    /// Runs it to its end; `user` is who runs the supervisor, 0 for whoever runs the test.
    outcome run_session(const command& run, const command& options = {}, uid_t user = 0);

    fs::path directory() const { return directory_.path(); }
    fs::path policy() const { return directory() / "policy"; }
    /// A file of the running session's status directory; "" when there is none yet.
    std::string status_file(const std::string& name) const
    {
        return read_file(directory() / "state/status" / name);
    }
    std::string kernel_log() const { return read_file(directory() / "state/kernel.log"); }

    /// A copy of a Python program of this folder, where every user can read it.
    fs::path script(const std::string& name) const;

    /// The port of the running session, which is waited for.
    std::string port() const;
    /// A client that shares no code with us, for child_process.
    command client(const command& steps, const std::string& to);
    /// Another directory for the output of a second program.
    fs::path beside() const;

    /// The system status of the policy that the next session gets: 3 enforces, 2 observes.
    std::string status = "3";
    /// Whether sessions tell what is in force when they start, and refusals at a terminal.
    bool is_told = false;

private:
    void write_policy();

    const temporary_directory directory_;
    std::string white_;
    std::map<std::string, fs::path> of_machine_;
    std::map<std::string, std::string> other_lists_;
};

std::size_t count_of(const std::string& text, const std::string& part);

/// Ids that an unprivileged user has here.
inline constexpr uid_t nobody = 65534;

/// The supervisors' users to test with: 0 is the test's own, and nobody where it can be had.
std::vector<uid_t> users();

} // namespace e2e

#endif
