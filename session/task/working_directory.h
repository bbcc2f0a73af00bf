#ifndef SORVANIC_SESSION_TASK_WORKING_DIRECTORY_H
#define SORVANIC_SESSION_TASK_WORKING_DIRECTORY_H

#include <memory>
#include <mutex>

#include "host/unique_fd.h"

namespace session {

/// The working directory that some tasks share, kept open between their calls because opening it costs more
/// than most calls. While one of them is about to change it, it is not kept. Any thread.
class working_directory {
public:
    using descriptor = std::shared_ptr<const host::unique_fd>;

    /// The kept descriptor, or the result of `open`.
    template <typename Open>
    descriptor get(Open open)
    {
        unsigned before = 0;
        {
            const std::lock_guard guard(lock_);
            if (kept_ != nullptr)
                return kept_;
            before = changes_;
        }
        auto opened = std::make_shared<const host::unique_fd>(open());
        const std::lock_guard guard(lock_);
        if (*opened && changes_ == before && movers_ == 0)
            kept_ = opened;
        return opened;
    }

    /// A task's move to another directory, from before the host's call begins until it has ended.
    class move {
    public:
        explicit move(working_directory& of) : of_(of) { of_.count(1); }
        ~move() { of_.count(-1); }
        move(const move&) = delete;
        move& operator=(const move&) = delete;

    private:
        working_directory& of_;
    };

private:
    void count(int movers)
    {
        const std::lock_guard guard(lock_);
        movers_ += movers;
        ++changes_; // also at the end: a look-up meanwhile may have seen either directory
        kept_.reset();
    }

    std::mutex lock_;
    descriptor kept_; // all under lock_
    int movers_ = 0;
    unsigned changes_ = 0;
};

} // namespace session

#endif
