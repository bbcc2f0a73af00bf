#include "session/state/status_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fmt/format.h>

#include "agent/status_files.h"
#include "host/text.h"
#include "session/state/trouble.h"

namespace session {

namespace {

constexpr mode_t for_reading = 0444;
constexpr mode_t for_reading_and_owner = 0644;
constexpr std::size_t reserve = 4096; // figures grow

bool write_whole(int fd, const std::string& text)
{
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written >= 0 && written != static_cast<ssize_t>(text.size()))
        errno = ENOSPC;
    return written == static_cast<ssize_t>(text.size());
}

} // namespace

status_directory::status_directory(const held_directory& state)
    : path_(state.link() + "/" + agent::status_directory_name)
{
    const auto fail = [&](const char* remedy) {
        throw trouble(fmt::format("status directory {}/{}: {}; {}", host::visible(state.path()),
                                  agent::status_directory_name, host::error_text(errno), remedy));
    };
    if (mkdir(path_.c_str(), 0755) != 0 && errno != EEXIST)
        fail("name another place with --state");
    const std::string name = path_ + "/" + agent::port_file_name;
    port_file_.reset(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, for_reading_and_owner));
    if (!port_file_)
        fail("name another place with --state");
    if (flock(port_file_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            throw trouble(
                fmt::format("another session has the state directory {}; end it or name another with --state",
                            host::visible(state.path())));
        fail("name another place with --state");
    }
    // A former session's.
    if (ftruncate(port_file_.get(), 0) != 0)
        fail("name another place with --state");
}

void status_directory::publish_port(std::uint32_t port) const
{
    fchmod(port_file_.get(), for_reading_and_owner);
    write_whole(port_file_.get(), fmt::format("{}\n", port));
}

int status_directory::publish(const std::string& name, const std::string& text)
{
    const int error = replace(name, text);
    const auto present = present_.find(name);
    if (error == 0 || present == present_.end())
        return error;
    // Blanks and line ends mean nothing in these files, and shortening a file gives its room back.
    struct stat about = {};
    fstat(present->second.get(), &about);
    std::string whole = text;
    whole.resize(std::max(text.size(), static_cast<std::size_t>(about.st_size)), '\n');
    const ssize_t written = pwrite(present->second.get(), whole.data(), whole.size(), 0);
    return written == static_cast<ssize_t>(whole.size()) ? 0 : error;
}

int status_directory::replace(const std::string& name, const std::string& text)
{
    const std::string whole = path_ + "/" + name;
    const std::string next = path_ + "/." + name + ".new";
    unlink(next.c_str()); // of a supervisor that was killed
    host::unique_fd file(
        open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, for_reading));
    if (!file)
        return errno;
    const auto room = static_cast<off_t>(text.size() + reserve);
    const bool has_room = fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, room) == 0 || errno == EOPNOTSUPP;
    if (!has_room || fchmod(file.get(), for_reading) != 0 || !write_whole(file.get(), text) ||
        rename(next.c_str(), whole.c_str()) != 0) {
        const int error = errno;
        unlink(next.c_str());
        return error;
    }
    present_.insert_or_assign(name, std::move(file));
    return 0;
}

} // namespace session
