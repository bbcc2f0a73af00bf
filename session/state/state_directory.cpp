#include "session/state/state_directory.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>

#include "host/text.h"
#include "session/state/trouble.h"

namespace session {

namespace {

std::string session_name()
{
    const time_t now = time(nullptr);
    tm parts = {};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return fmt::format("{}-{}", text, getpid());
}

void make(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            throw trouble(fmt::format("state directory {}: {}; name another with --state",
                                      host::visible(part), host::error_text(errno)));
        if (end == std::string::npos)
            break;
    }
    if (!std::filesystem::is_directory(path) || access(path.c_str(), W_OK | X_OK) != 0)
        throw trouble(
            fmt::format("state directory {} is not a directory that this user can write to; name another "
                        "with --state",
                        host::visible(path)));
}

} // namespace

std::string default_base_directory()
{
    if (geteuid() == 0)
        return "/var/lib/sorvanic";
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/sorvanic";
    const char* const home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return std::string(home) + "/.local/state/sorvanic";
    throw trouble(
        "no directory for the session's logs: neither XDG_STATE_HOME nor HOME is set; name one with --state");
}

std::string make_state_directory(const std::string& wanted)
{
    std::error_code error;
    std::string path = wanted.empty() ? default_base_directory() + "/" + session_name()
                                      : std::filesystem::absolute(wanted, error).string();
    make(path + "/log");
    return path;
}

} // namespace session
