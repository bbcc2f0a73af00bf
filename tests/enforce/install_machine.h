#ifndef SORVANIC_TESTS_ENFORCE_INSTALL_MACHINE_H
#define SORVANIC_TESTS_ENFORCE_INSTALL_MACHINE_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "digest/digest_key.h"
#include "enforce/install/install_tracking.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

/// The key text of a file with this content.
inline std::string key_text(std::string_view content)
{
    char text[digest_key_text_size];
    digest_key_text(support::key_of(content), text);
    return text;
}

/// A machine on which software is installed: files keep their inodes between events, and the
/// install logs are in memory, where their odd permission bits keep nobody out.
///
///     1 ── 10 launcher ── 20 installer ── 30 script ── 40 tool
///     │               └── 21 shell ────── 31
///     └─── 50 ─── 51 ─── 52 elsewhere
struct install_machine : support::machine {
    install_machine()
    {
        sorvanic_kernel_task_inside_super_proc_clean(); // the record outlives a machine
        platform::mount_memory("/var/log");
        for (const char* path : {"/bin/sh", "/opt/sorvall", "/opt/unknown", "/opt/tool"})
            write(path, path);
        const std::pair<int, int> tree[] = {{10, 1},  {20, 10}, {30, 20}, {40, 30}, {21, 10},
                                            {31, 21}, {50, 1},  {51, 50}, {52, 51}};
        for (const auto& [pid, parent] : tree)
            process(pid, parent, "/bin/sh");
        policy("statlabel=3 modllabel=2222 installlabel=2 whitelist=/opt/sorvall");
    }
    ~install_machine()
    {
        agent_.reset();
        files_.clear();
        root_.reset();
        mount_.reset();
        platform::clear_mounts();
    }

    /// Loads the engine and connects an agent; the log is empty then.
    void start()
    {
        agent_.reset();
        ASSERT_EQ(load(), 0);
        agent_.emplace(90);
        log();
    }

    /// The path in the next record of a refused program, or "".
    std::string reported()
    {
        const std::string message = agent_->next();
        return message.empty() ? "" : messages::text_at(message, 16 + 4);
    }

    /// The program at `path` is executed, under the name `filename` if there is one.
    int run(int pid, const std::string& path, const std::string& filename = "")
    {
        const platform::exec_parameters bprm(file(path), filename.empty() ? path : filename);
        const support::acting as(pid);
        return platform::security().bprm_check_security(bprm.get());
    }

    /// The installer starts: task 20, launched by task 10.
    void begin_install() { run(20, "/opt/sorvall"); }

    /// A new name appears; as in a kernel, it has no inode yet.
    int create(int pid, std::string_view path)
    {
        const platform::dentry_handle entry =
            platform::make_entry(root_.get(), std::string(path.substr(1)), nullptr);
        const support::acting as(pid);
        return platform::security().inode_create(nullptr, entry.get(), 0);
    }

    int chmod(int pid, const std::string& path, unsigned mode = 0100755)
    {
        const platform::attribute_request attributes(mode);
        const support::acting as(pid);
        return platform::security().inode_setattr(kernel::file_path(file(path)).dentry, attributes.get());
    }

    /// The open file at `path`, always with the same inode.
    kernel::file* file(const std::string& path)
    {
        platform::file_handle& kept = files_[path];
        if (kept == nullptr)
            kept = open(path);
        return kept.get();
    }

    static std::string install_log() { return log_file("swinstall.log"); }
    static std::string exec_log() { return log_file("swinstall_exec.log"); }

private:
    static std::string log_file(const std::string& name)
    {
        return platform::memory_file("/var/log/" + name).value_or("");
    }

    std::optional<messages::agent> agent_;
    std::map<std::string, platform::file_handle> files_;
    platform::dentry_handle root_ = platform::make_root({.number = 1, .mode = 040755});
    platform::mount_handle mount_ = platform::add_mount(root_.get(), "/");
};

#endif
