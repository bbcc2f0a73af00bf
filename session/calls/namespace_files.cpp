#include "session/calls/namespace_files.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "platform/user/driver/tasks.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

bool shares(pid_t task, std::initializer_list<const char*> namespaces)
{
    for (const char* const name : namespaces) {
        struct stat own = {};
        struct stat other = {};
        if (stat(fmt::format("/proc/self/ns/{}", name).c_str(), &own) != 0 ||
            stat(fmt::format("/proc/{}/ns/{}", task, name).c_str(), &other) != 0 ||
            own.st_dev != other.st_dev || own.st_ino != other.st_ino)
            return false;
    }
    return true;
}

/// A device that becomes part of a network: "tun", and "tap" with a number.
bool is_network_device(dev_t number)
{
    constexpr unsigned misc_major = 10;
    constexpr unsigned tun_minor = 200;
    if (major(number) == misc_major)
        return minor(number) == tun_minor;
    std::error_code unknown;
    const std::string device = std::filesystem::read_symlink(
                                   fmt::format("/sys/dev/char/{}:{}", major(number), minor(number)), unknown)
                                   .filename();
    return device.starts_with("tap");
}

bool is_setting(const pinned_object& file)
{
    return file.path.text.find("/sys/") != std::string::npos && is_in_proc(file.file().get());
}

bool is_network_setting(std::string_view path)
{
    return path.find("/sys/net/") != path.npos || path.ends_with("/sys/net");
}

} // namespace

bool acts_on_other_namespace(const caller& who, const pinned_object& file, bool to_write)
{
    if (S_ISCHR(file.about.st_mode))
        return is_network_device(file.about.st_rdev) && !shares(who.task(), {"net"});
    if (!is_setting(file))
        return false;
    if (is_network_setting(file.path.text))
        return !shares(who.task(), {"net"});
    return to_write && !shares(who.task(), {"ipc", "user"});
}

bool maps_own_ids(const caller& who, const pinned_object& file)
{
    constexpr std::string_view names[] = {"/uid_map", "/gid_map", "/projid_map", "/setgroups"};
    const std::string& path = file.path.text;
    return std::ranges::any_of(names, [&](std::string_view name) { return path.ends_with(name); }) &&
           is_in_proc(file.file().get()) &&
           process_of_entry(file.file(), path) == platform::process_of(who.task()) &&
           !shares(who.task(), {"user"});
}

} // namespace session
