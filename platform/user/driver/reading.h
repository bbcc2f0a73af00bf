#ifndef SORVANIC_PLATFORM_USER_DRIVER_READING_H
#define SORVANIC_PLATFORM_USER_DRIVER_READING_H

#include <functional>

namespace platform {

/// Watches what the engine opens and reads of the host on the calling thread, for one scope. The engine
/// takes a file that cannot be read for one without a digest; a driver that knows why need not. One at
/// a time on each thread.
class reading {
public:
    /// `given_up` is asked before each read of at most 64 KiB; once it says so, reads fail with
    /// -EINTR. May be empty.
    explicit reading(std::function<bool()> given_up = {});
    ~reading();
    reading(const reading&) = delete;
    reading& operator=(const reading&) = delete;

    /// False once something was given up, or failed because this process is short of descriptors or
    /// memory: what the engine decided then rests on less than there was to read.
    bool complete() const { return complete_; }

private:
    friend bool reading_given_up();
    friend int reading_failed(int error);

    std::function<bool()> given_up_;
    bool complete_ = true;
};

} // namespace platform

#endif
