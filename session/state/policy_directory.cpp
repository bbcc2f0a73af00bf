#include "session/state/policy_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <fmt/format.h>

#include "host/text.h"
#include "host/unique_fd.h"
#include "policy/catalogue.h"
#include "session/state/trouble.h"

namespace session {

namespace {

void check_file(const std::string& path)
{
    struct stat about;
    if (stat(path.c_str(), &about) != 0) {
        if (errno == ENOENT)
            return;
        throw trouble(fmt::format("policy file {}: {}; make it readable or remove it", host::visible(path),
                                  host::error_text(errno)));
    }
    if (!S_ISREG(about.st_mode))
        throw trouble(
            fmt::format("policy file {} is not a regular file; put the policy's file there or remove it",
                        host::visible(path)));
    const host::unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        throw trouble(fmt::format("policy file {}: {}; make it readable for this user", host::visible(path),
                                  host::error_text(errno)));
}

} // namespace

void check_policy_directory(const std::string& path)
{
    struct stat about;
    if (stat(path.c_str(), &about) != 0)
        throw trouble(fmt::format("policy directory {}: {}; name one with --policy", host::visible(path),
                                  host::error_text(errno)));
    if (!S_ISDIR(about.st_mode))
        throw trouble(fmt::format("policy directory {} is not a directory; name one with --policy",
                                  host::visible(path)));
    if (access(path.c_str(), X_OK) != 0)
        throw trouble(fmt::format("policy directory {}: {}; make it accessible for this user",
                                  host::visible(path), host::error_text(errno)));
    for (const policy_file& file : policy_files)
        check_file(path + "/" + file.name);
}

} // namespace session
