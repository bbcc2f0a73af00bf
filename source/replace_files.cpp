#include "source/replace_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "host/unique_fd.h"

namespace source {

namespace {

/// Throws for `path` and the errno of the call that just failed.
[[noreturn]] void fail(const std::string& path, int error = errno)
{
    throw std::system_error(error, std::generic_category(), path);
}

/// A file beside `path` that takes its place with publish(), or goes away again.
class replacement {
public:
    replacement(const std::string& directory, const new_file& file)
        : path_(directory + "/" + file.name), temporary_(directory + "/." + file.name + ".XXXXXX")
    {
        struct stat old {};
        const bool replaces = ::lstat(path_.c_str(), &old) == 0;
        if (replaces && S_ISDIR(old.st_mode))
            fail(path_, EISDIR);
        const host::unique_fd fd(::mkostemp(temporary_.data(), O_CLOEXEC));
        if (!fd) {
            temporary_.clear();
            fail(path_);
        }
        write(fd.get(), file.content);
        if (replaces && S_ISREG(old.st_mode)) {
            // Giving a file away takes rights that its owner may lack; then it is the writer's.
            [[maybe_unused]] const int given = ::fchown(fd.get(), old.st_uid, old.st_gid);
            if (::fchmod(fd.get(), old.st_mode & 0777) != 0)
                discard_and_fail();
        }
        if (::fsync(fd.get()) != 0)
            discard_and_fail();
    }
    replacement(replacement&& other) noexcept
        : path_(std::move(other.path_)), temporary_(std::exchange(other.temporary_, {}))
    {
    }
    replacement& operator=(replacement&&) = delete;
    ~replacement() { discard(); }

    void publish()
    {
        if (::rename(temporary_.c_str(), path_.c_str()) != 0)
            fail(path_);
        temporary_.clear();
    }

private:
    void write(int fd, std::string_view rest)
    {
        while (!rest.empty()) {
            const ssize_t written = ::write(fd, rest.data(), rest.size());
            if (written < 0)
                discard_and_fail();
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void discard()
    {
        if (!temporary_.empty())
            ::unlink(temporary_.c_str());
    }

    /// For the constructor, whose failure no destructor follows.
    [[noreturn]] void discard_and_fail()
    {
        const int error = errno;
        discard();
        fail(path_, error);
    }

    std::string path_;
    std::string temporary_; ///< empty once there is nothing to remove
};

} // namespace

void replace_files(const std::string& directory, const std::vector<new_file>& files)
{
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        fail(directory);
    const host::unique_fd opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened)
        fail(directory);

    std::vector<replacement> replacements;
    replacements.reserve(files.size());
    for (const new_file& file : files)
        replacements.emplace_back(directory, file);
    for (replacement& ready : replacements)
        ready.publish();
    if (::fsync(opened.get()) != 0)
        fail(directory);
}

} // namespace source
