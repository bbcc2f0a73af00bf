#include "source/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "host/unique_fd.h"

namespace source {

std::optional<std::string> read_regular_file(const std::string& path,
                                             const std::function<void(std::string_view)>& take)
{
    const host::unique_fd opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat facts {};
    if (!opened || ::fstat(opened.get(), &facts) != 0)
        return std::strerror(errno);
    if (!S_ISREG(facts.st_mode))
        return S_ISDIR(facts.st_mode) ? std::strerror(EISDIR) : "Not a regular file";

    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t got = ::read(opened.get(), buffer.data(), buffer.size());
        if (got < 0)
            return std::strerror(errno);
        if (got == 0)
            return std::nullopt;
        take({buffer.data(), static_cast<std::size_t>(got)});
    }
}

} // namespace source
