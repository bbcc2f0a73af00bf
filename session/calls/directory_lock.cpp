#include "session/calls/directory_lock.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <stdexcept>

namespace session {

namespace {

constexpr std::pair<dev_t, ino_t> whole_tree = {0, 0}; // no directory's

// Each directory has a lock of its own, because a process of the session that serves a file system must be
// able to work in other directories while a call waits for it there.
struct held_directories {
    std::mutex lock;
    std::condition_variable changed;
    std::set<std::pair<dev_t, ino_t>> held;
};

held_directories& all_held()
{
    static auto* all = new held_directories;
    return *all;
}

} // namespace

directory_lock::key directory_lock::key_of(const pinned_object& directory)
{
    return {directory.about.st_dev, directory.about.st_ino};
}

void directory_lock::take(const key& wanted)
{
    held_directories& all = all_held();
    std::unique_lock guard(all.lock);
    all.changed.wait(guard, [&] { return !all.held.contains(wanted) && !all.held.contains(whole_tree); });
    all.held.insert(wanted);
}

void directory_lock::give_back(const key& held)
{
    held_directories& all = all_held();
    {
        const std::lock_guard guard(all.lock);
        all.held.erase(held);
    }
    all.changed.notify_all();
}

directory_lock::directory_lock() : first_(whole_tree), second_(whole_tree)
{
    held_directories& all = all_held();
    std::unique_lock guard(all.lock);
    // Those who come meanwhile go before: one that waits for a file server must not stop all others.
    if (!all.changed.wait_for(guard, std::chrono::seconds(1), [&] { return all.held.empty(); }))
        throw std::runtime_error("names are being changed all the time");
    all.held.insert(whole_tree);
}

directory_lock::directory_lock(const pinned_object& one) : directory_lock(one, one)
{
}

directory_lock::directory_lock(const pinned_object& one, const pinned_object& other)
    : first_(std::min(key_of(one), key_of(other))), second_(std::max(key_of(one), key_of(other)))
{
    take(first_);
    if (second_ != first_)
        take(second_);
}

directory_lock::~directory_lock()
{
    if (second_ != first_)
        give_back(second_);
    give_back(first_);
}

} // namespace session
