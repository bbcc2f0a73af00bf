#include "session/calls/calls.h"

#include <gtest/gtest.h>
#include <linux/capability.h>

#include <map>
#include <mutex>
#include <set>
#include <sstream>

#include "platform/kernel/scoped.h"
#include "platform/kernel/text.h"
#include "platform/user/driver/kernel_text.h"
#include "session/engine.h"
#include "session/state/trouble.h"
#include "session/supervise.h"
#include "tests/temporary_directory.h"

// Every system call of the table, made by a real process: which hooks it reaches, with what, and
// that each of them can stop it.

namespace session {
namespace {

struct reached {
    unsigned hook;
    std::string text; ///< what it is asked about: names below the call's directory, "." for itself
};

/// What the hooks are asked by one call, from the moment that it opens "go" in its directory
/// "CALL.TIME" on. The hook of that number in the row, TIME - 1, refuses.
struct recorder {
    std::mutex lock;
    std::string place;
    std::map<std::string, std::vector<reached>> calls; ///< by "CALL.TIME"
    std::string running;
};

recorder& record()
{
    static recorder one;
    return one;
}

/// As the engine finds it: through the mount that shows the entry's file system.
std::string path_of(const kernel::dentry* entry)
{
    kernel::path where = {nullptr, const_cast<kernel::dentry*>(entry)};
    kernel::iterate_mounts(
        [](kernel::vfsmount* mount, void* argument) {
            auto* const sought = static_cast<kernel::path*>(argument);
            if (kernel::mount_root(mount) != kernel::dentry_file_system_root(sought->dentry))
                return false;
            sought->mnt = mount;
            return true;
        },
        &where);
    char text[4096];
    const char* const path = kernel::d_path(&where, text, sizeof text);
    return kernel::is_error(path) ? "" : path;
}

std::string name_of(const kernel::dentry* entry)
{
    const std::string path = path_of(entry);
    const std::string before = record().place + "/" + record().running;
    if (!path.starts_with(before))
        return path;
    return path.size() == before.size() ? "." : path.substr(before.size() + 1);
}

int add(unsigned hook, const std::string& text)
{
    recorder& all = record();
    if (all.running.empty())
        return 0;
    std::vector<reached>& row = all.calls[all.running];
    row.push_back({hook, text});
    const std::size_t refusing = std::stoul("0" + all.running.substr(all.running.find('.') + 1));
    return row.size() == refusing ? -1 : 0;
}

int about_entry(unsigned hook, const std::string& what, const kernel::dentry* entry, int number = -1)
{
    const std::lock_guard guard(record().lock);
    std::ostringstream text;
    text << what << " ";
    if (number >= 0)
        text << std::hex << number << " ";
    text << name_of(entry);
    return add(hook, text.str());
}

int permission(kernel::inode* asked, int mask)
{
    const kernel::dentry_ref alias(kernel::d_find_alias(asked));
    {
        recorder& all = record();
        const std::lock_guard guard(all.lock);
        const std::string path = path_of(alias.get());
        if (path.starts_with(all.place + "/") && path.ends_with("/go") && mask == 0x24) {
            all.running = path.substr(all.place.size() + 1, path.size() - all.place.size() - 4);
            return 0;
        }
        if (path == all.place + "/ended")
            all.running.clear();
    }
    return about_entry(on_inode_permission, "permission", alias.get(), mask);
}

int file(kernel::file* opened, int mask)
{
    const kernel::dentry* entry = kernel::file_path(opened).dentry;
    return path_of(entry).ends_with("/go") ? 0 : about_entry(on_file_permission, "file", entry, mask);
}

int about_two(unsigned hook, const char* what, const kernel::dentry* one, const kernel::dentry* other)
{
    const std::lock_guard guard(record().lock);
    return add(hook, std::string(what) + " " + name_of(one) + " " + name_of(other));
}

int about_nothing(unsigned hook, const std::string& text)
{
    const std::lock_guard guard(record().lock);
    return add(hook, text);
}

/// Puts the recorder in the engine's place; its exit takes it out again.
void take_the_hooks()
{
    kernel::preempt_disable();
    const unsigned long was = kernel::read_cr0();
    kernel::write_cr0(was & ~kernel::cr0_write_protect);
    kernel::security_operations& hooks = *security_ops;
    hooks.bprm_check_security = [](kernel::linux_binprm*) { return 0; };
    hooks.file_permission = file;
    hooks.inode_permission = permission;
    hooks.inode_create = [](kernel::inode*, kernel::dentry* entry, int mode) {
        return about_entry(on_create, "create", entry, mode);
    };
    hooks.inode_unlink = [](kernel::inode*, kernel::dentry* entry) {
        return about_entry(on_unlink, "unlink", entry);
    };
    hooks.inode_link = [](kernel::dentry* old, kernel::inode*, kernel::dentry* made) {
        return about_two(on_link, "link", old, made);
    };
    hooks.inode_symlink = [](kernel::inode*, kernel::dentry* entry, const char* text) {
        return about_entry(on_symlink, std::string("symlink ") + text, entry);
    };
    hooks.inode_rename = [](kernel::inode*, kernel::dentry* old, kernel::inode*, kernel::dentry* made) {
        return about_two(on_rename, "rename", old, made);
    };
    hooks.inode_mkdir = [](kernel::inode*, kernel::dentry* entry, int mode) {
        return about_entry(on_mkdir, "mkdir", entry, mode);
    };
    hooks.inode_rmdir = [](kernel::inode*, kernel::dentry* entry) {
        return about_entry(on_rmdir, "rmdir", entry);
    };
    hooks.inode_setattr = [](kernel::dentry* entry, kernel::iattr* request) {
        return about_entry(on_setattr, "setattr", entry, static_cast<int>(kernel::iattr_mode(request)));
    };
    hooks.inode_free_security = [](kernel::inode*) {};
    hooks.settime = [](kernel::timespec*, kernel::timezone*) { return about_nothing(on_settime, "settime"); };
    hooks.task_kill = [](kernel::task_struct*, kernel::siginfo*, int signal, kernel::u32) {
        return about_nothing(on_kill, "kill " + std::to_string(signal));
    };
    kernel::write_cr0(was);
    kernel::preempt_enable();
}

using texts = std::vector<std::string>;

/// By call: 20 is MAY_OPEN, 10 MAY_ACCESS; modes are in hexadecimal: 81ed is a regular file's 0755.
const std::map<std::string, texts>& expected_hooks()
{
    static const std::pair<const char*, texts> groups[] = {
        {"open", {"permission 26 f", "file 4 f", "file 2 f"}},
        {"openat", {"permission 2a f", "file 2 f"}},
        {"openat2", {"permission 3 .", "create 81a0 new", "file 2 new"}},
        {"creat", {"permission 22 f", "setattr 81ed f", "file 2 f"}},
        {"access", {"permission 14 f"}},
        {"faccessat", {"permission 12 f"}},
        {"faccessat2 chdir fchdir chroot", {"permission 11 d"}},
        {"mknod mknodat", {"permission 3 .", "create 8180 new"}},
        {"mkdir mkdirat", {"permission 3 .", "mkdir 1c0 new"}},
        {"symlink symlinkat", {"permission 3 .", "symlink f new"}},
        {"link linkat", {"permission 3 .", "link f new"}},
        {"unlink unlinkat", {"permission 3 .", "unlink f"}},
        {"rmdir", {"permission 3 .", "rmdir d"}},
        {"rename", {"permission 3 .", "permission 3 .", "rename f new"}},
        {"renameat", {"permission 3 .", "permission 3 .", "rename d new"}},
        {"renameat2", {"permission 3 .", "permission 3 .", "rename f d", "rename d f"}},
        {"chmod fchmod fchmodat fchmodat2", {"setattr 81c0 f"}},
        {"chown lchown fchown fchownat ftruncate file_setattr", {"setattr 81ed f"}},
        {"truncate", {"permission 2 f", "setattr 81ed f"}},
        {"utime utimes futimesat utimensat", {"setattr 0 f"}},
        {"setxattr lsetxattr fsetxattr setxattrat", {"permission 2 f"}},
        {"removexattr lremovexattr fremovexattr removexattrat", {"permission 2 f"}},
        {"getxattr lgetxattr fgetxattr getxattrat inotify_add_watch", {"permission 4 f"}},
        {"kill tkill tgkill rt_sigqueueinfo rt_tgsigqueueinfo pidfd_send_signal", {"kill 0"}},
        {"prlimit64 sched_setaffinity sched_setscheduler sched_setparam sched_setattr", {"kill 9"}},
        {"setpriority ioprio_set migrate_pages move_pages", {"kill 9"}},
        {"settimeofday clock_settime clock_adjtime adjtimex", {"settime"}},
        {"bind", {"permission 3 ."}},
        {"mmap", {"file 4 f"}},
        {"read pread64 readv preadv preadv2 splice", {"file 4 f"}},
        {"getdents getdents64", {"file 4 d"}},
        {"write pwrite64 writev pwritev pwritev2", {"file 2 f"}},
        {"sendfile copy_file_range", {"file 4 f", "file 2 other"}},
    };
    static const std::map<std::string, texts> all = [] {
        std::map<std::string, texts> made;
        for (const auto& [calls, hooks] : groups) {
            std::istringstream names(calls);
            for (std::string name; names >> name;)
                made[name] = hooks;
        }
        return made;
    }();
    return all;
}

/// What cannot be tried with the test's own rights.
bool needs_more_rights(unsigned hooks, const std::string& name)
{
    const credentials& own = own_credentials();
    return ((hooks & on_settime) != 0 && !own.has(CAP_SYS_TIME)) ||
           (name == "chroot" && !own.has(CAP_SYS_CHROOT));
}

int error_without_session(const std::string& name, const std::string& directory)
{
    constexpr long file_setattr = 469; // not every kernel and file system has it
    char nothing[24] = {};
    if (name == "file_setattr")
        return syscall(file_setattr, AT_FDCWD, directory.c_str(), nothing, sizeof nothing, 0) == 0 ? 0
                                                                                                   : errno;
    const bool lacks = name.find("getxattr") != name.npos || name.find("removexattr") != name.npos;
    return lacks ? ENODATA : 0;
}

std::string shown(const std::vector<reached>& row)
{
    std::string all;
    for (const reached& one : row)
        all += one.text + "; ";
    return all;
}

TEST(calls, each_reaches_its_hooks_in_order_and_passes_none_that_refuses)
{
    const temporary_directory directory;
    std::filesystem::create_directory(directory / "calls");
    record().place = std::filesystem::canonical(directory / "calls").string();
    options wanted;
    wanted.policy = directory.path();
    wanted.state = directory / "state";
    wanted.rules.every_io = true;
    std::string made = "python3 " SORVANIC_SOURCE_DIR "/tests/session/make_call.py";
    std::set<std::string> tried;
    for (const call_rule& rule : call_rules()) {
        if ((rule.hooks & ~on_exec) == 0 || needs_more_rights(rule.hooks, rule.name))
            continue;
        const auto expected = expected_hooks().find(rule.name);
        ASSERT_NE(expected, expected_hooks().end()) << rule.name << " is new";
        if (!tried.insert(rule.name).second)
            continue; // it has several rules
        made += " " + expected->first + ":" + std::to_string(rule.number) + ":" +
                std::to_string(expected->second.size() + 1);
    }
    wanted.command = {"/bin/sh", "-c", "cd '" + record().place + "'; exec " + made + " > ../out"};
    try {
        engine loaded(wanted);
        take_the_hooks();
        const supervisor_signals signals;
        refusals told(false);
        ASSERT_EQ(supervise(wanted, loaded, signals, told), 0);
    } catch (const trouble& forbidden) {
        GTEST_SKIP() << forbidden.what();
    }

    std::ifstream out(directory / "out");
    std::string name;
    std::size_t time = 0;
    int error = 0;
    std::size_t calls = 0;
    while (out >> name >> time >> error) {
        SCOPED_TRACE(name + "." + std::to_string(time));
        const texts& hooks = expected_hooks().at(name);
        std::string expected;
        for (std::size_t i = 0; i < hooks.size() && (time == 0 || i < time); ++i)
            expected += hooks[i] + "; ";
        const std::vector<reached>& row = record().calls[name + "." + std::to_string(time)];
        EXPECT_EQ(shown(row), expected);
        for (const call_rule& rule : call_rules()) {
            for (const reached& one : row)
                EXPECT_TRUE(rule.name != name || rule.hooks == 0 || (rule.hooks & one.hook) != 0) << one.text;
        }
        EXPECT_EQ(error, time != 0 ? EPERM : error_without_session(name, directory.path()));
        calls += time == 0 ? 1 : 0;
    }
    EXPECT_EQ(calls, tried.size());
}

} // namespace
} // namespace session
