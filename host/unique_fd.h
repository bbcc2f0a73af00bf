#ifndef SORVANIC_HOST_UNIQUE_FD_H
#define SORVANIC_HOST_UNIQUE_FD_H

#include <fcntl.h>
#include <unistd.h>

#include <utility>

// What all hosted folders share, apart from the stand-in kernel: descriptors, reading proc, texts of errors,
// and foreign bytes made safe to show.

namespace host {

/// Owns one file descriptor; -1 is none.
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        if (this != &other)
            reset(std::exchange(other.fd_, -1));
        return *this;
    }
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

/// A second descriptor of what `fd` has open, closed on exec. Empty, and errno, on failure.
inline unique_fd duplicate(int fd)
{
    return unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

inline unique_fd duplicate(const unique_fd& of)
{
    return duplicate(of.get());
}

} // namespace host

#endif
