#include "platform/user/files/inode_numbers.h"

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

constexpr int number_bits = 48;
constexpr unsigned long number_mask = (1UL << number_bits) - 1;
constexpr unsigned long memory_device = 0xffff;

// What stands above bit 48: one for each pair of a device and the upper 16 bits of a number,
// in the order in which they are met (some file systems use all 64 bits).
struct numbered_devices {
    std::mutex lock;
    std::map<std::pair<dev_t, unsigned long>, unsigned long> indexes;
};

numbered_devices& devices()
{
    static auto* all = new numbered_devices;
    return *all;
}

} // namespace

unsigned long unique_inode_number(const struct stat& of)
{
    const unsigned long number = of.st_ino;
    numbered_devices& all = devices();
    const std::lock_guard guard(all.lock);
    const auto [place, is_new] =
        all.indexes.try_emplace({of.st_dev, number >> number_bits}, all.indexes.size() + 1);
    if (is_new && place->second >= memory_device)
        die("more than 65534 devices: inode numbers would no longer be unique");
    return (place->second << number_bits) | (number & number_mask);
}

unsigned long new_memory_inode_number()
{
    static constinit std::atomic<unsigned long> last = 0;
    return (memory_device << number_bits) | ++last;
}

} // namespace platform
