#include <fcntl.h>
#include <linux/fanotify.h>
#include <linux/landlock.h>
#include <linux/openat2.h>
#include <sys/fanotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/attacks/attack.h"

// Reaches what rules close: by another name, through the kernel, by a call that nobody thought of.

using namespace attack;

namespace {

result rename_above(const std::string& place, int)
{
    if (rename((place + "/up").c_str(), (place + "/moved").c_str()) != 0)
        return told("rename", false);
    return told("open", can_read(place + "/moved/closed/secret"));
}

result exchange_above(const std::string& place, int)
{
    mkdir((place + "/other").c_str(), 0777);
    if (renameat2(AT_FDCWD, (place + "/up").c_str(), AT_FDCWD, (place + "/other").c_str(), RENAME_EXCHANGE) !=
        0)
        return told("exchange", false);
    return told("open", can_read(place + "/other/closed/secret"));
}

/// Moves what is in the directory of that name away, to put a forgery there.
template <const char* name>
result move_away(const std::string& place, int)
{
    return told("rename", rename((place + name).c_str(), (place + "/gone").c_str()) == 0);
}

constexpr char above_policy[] = "/conf";
constexpr char above_state[] = "/run";

result enter(const std::string& place, int)
{
    return told("chdir", chdir((place + "/closed/inner").c_str()) == 0);
}

/// A name in memory that nobody but this process can read.
result secret_name(const std::string& place, int)
{
    const int fd = static_cast<int>(syscall(SYS_memfd_secret, O_CLOEXEC));
    if (fd < 0 || ftruncate(fd, 4096) != 0)
        return not_here;
    auto* name = static_cast<char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (name == MAP_FAILED)
        return not_here;
    std::strcpy(name, (place + "/closed/inner").c_str());
    return told("chdir", chdir(name) == 0);
}

result socket_name(const std::string& place, int)
{
    sockaddr_un at = {};
    at.sun_family = AF_UNIX;
    std::strcpy(at.sun_path, (place + "/closed/s").c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    return told("bind", bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0);
}

result watch(const std::string& place, int)
{
    const int fd = fanotify_init(FAN_CLASS_NOTIF | FAN_REPORT_FID, 0);
    if (fd < 0)
        return errno == ENOSYS ? not_here : told("fanotify_init", false);
    return told("fanotify_mark", fanotify_mark(fd, FAN_MARK_ADD, FAN_OPEN | FAN_EVENT_ON_CHILD, AT_FDCWD,
                                               (place + "/closed").c_str()) == 0);
}

result accounting(const std::string& place, int)
{
    if (acct((place + "/closed/secret").c_str()) != 0)
        return errno == ENOSYS ? not_here : told("acct", false);
    acct(nullptr);
    return worked;
}

/// The kernel writes the core of a process to its working directory.
result core(const std::string& place, int)
{
    const std::string closed = place + "/closed";
    const pid_t child = fork();
    if (child == 0) {
        const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_CORE, &all);
        if (chdir(closed.c_str()) != 0)
            _exit(1);
        std::abort();
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status))
        return refused;
    struct stat about = {};
    for (const std::string& name : {closed + "/core", closed + "/core." + std::to_string(child)})
        if (stat(name.c_str(), &about) == 0)
            return worked;
    return told("core", false);
}

result change_root(const std::string& place, int)
{
    if (chroot(place.c_str()) != 0)
        return told("chroot", false);
    return told("open", can_read("/closed/secret"));
}

/// By its other name, made by whoever started us.
result other_name(const std::string& place, int)
{
    return told("open", can_read(place + "/mounted/secret"));
}

/// Through the root of a process in another mount namespace, made by whoever started us.
result other_root(const std::string& place, int)
{
    for (const auto& each : std::filesystem::directory_iterator("/proc")) {
        const std::string path = each.path().string();
        char own[64] = {};
        char its[64] = {};
        if (readlink("/proc/self/ns/mnt", own, sizeof own - 1) > 0 &&
            readlink((path + "/ns/mnt").c_str(), its, sizeof its - 1) > 0 && std::strcmp(own, its) != 0 &&
            can_read(path + "/root" + place + "/other/secret"))
            return worked;
    }
    return told("open", false);
}

result in_directory(const std::string& place, int)
{
    const int above = open(place.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    open_how how = {};
    how.flags = O_RDONLY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return told("openat2", syscall(SYS_openat2, above, "closed/secret", &how, sizeof how) >= 0);
}

result set_attribute_at(const std::string& place, int)
{
    constexpr long setxattrat = 463;
    struct {
        std::uint64_t value;
        std::uint32_t size;
        std::uint32_t flags;
    } arguments = {reinterpret_cast<std::uint64_t>("value"), 5, 0};
    const long done = syscall(setxattrat, AT_FDCWD, (place + "/closed/secret").c_str(), 0, "user.attack",
                              &arguments, sizeof arguments);
    return told("setxattrat", done == 0);
}

/// Not an attack itself: what landlock forbids this process, the session must not do for it.
result forbidden_by_landlock(const std::string& place, int)
{
    landlock_ruleset_attr rules = {};
    rules.handled_access_fs = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE;
    const int fd = static_cast<int>(syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0));
    if (fd < 0 || syscall(SYS_landlock_restrict_self, fd, 0) != 0)
        return told("landlock", false); // absent, which is as good
    return told("open", can_read(place + "/listed"));
}

constexpr entry attacks[] = {
    {"rename-above", rename_above},
    {"exchange-above", exchange_above},
    {"policy-above", move_away<above_policy>},
    {"state-above", move_away<above_state>},
    {"enter", enter},
    {"secret-name", secret_name},
    {"socket", socket_name},
    {"watch", watch},
    {"accounting", accounting},
    {"core", core},
    {"chroot", change_root},
    {"other-name", other_name},
    {"other-root", other_root},
    {"openat2", in_directory},
    {"setxattrat", set_attribute_at},
    {"landlock", forbidden_by_landlock},
};

} // namespace

const std::span<const entry> attack::all = attacks;
