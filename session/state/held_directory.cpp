#include "session/state/held_directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include <fmt/format.h>

#include "host/text.h"
#include "session/state/trouble.h"

namespace session {

held_directory::held_directory(const char* what, const std::string& name)
    : held_(open(name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
    struct stat about = {};
    if (!held_ || fstat(held_.get(), &about) != 0)
        throw trouble(fmt::format("{} {}: {}", what, host::visible(name), host::error_text(errno)));
    device_ = about.st_dev;
    number_ = about.st_ino;
    first_path_ = std::filesystem::canonical(name).string();
}

std::string held_directory::link() const
{
    return fmt::format("/proc/self/fd/{}", held_.get());
}

std::string held_directory::path() const
{
    std::error_code error;
    std::string now = std::filesystem::read_symlink(link(), error).string();
    return now.starts_with('/') ? now : first_path_;
}

} // namespace session
