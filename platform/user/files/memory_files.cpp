#include "platform/user/files/memory_files.h"

#include <algorithm>
#include <utility>

#include "platform/user/files/inode_numbers.h"

namespace platform {

memory_node::memory_node(unsigned type_and_permissions, std::string text)
    : number(new_memory_inode_number()), mode(type_and_permissions), content_(std::move(text))
{
}

std::string memory_node::content() const
{
    const std::lock_guard guard(lock_);
    return content_;
}

inode_facts memory_node::facts() const
{
    const std::lock_guard guard(lock_);
    return {number, mode, static_cast<long long>(content_.size())};
}

std::size_t memory_node::read(char* buffer, std::size_t size, kernel::s64 position) const
{
    const std::lock_guard guard(lock_);
    const auto start = static_cast<std::size_t>(position);
    return start >= content_.size() ? 0 : content_.copy(buffer, size, start);
}

kernel::s64 memory_node::write(const char* buffer, std::size_t size, kernel::s64 position, bool at_end)
{
    const std::lock_guard guard(lock_);
    const std::size_t start = at_end ? content_.size() : static_cast<std::size_t>(position);
    if (content_.size() < start + size)
        content_.resize(start + size);
    std::copy_n(buffer, size, content_.data() + start);
    return static_cast<kernel::s64>(start + size);
}

void memory_node::truncate()
{
    const std::lock_guard guard(lock_);
    content_.clear();
}

} // namespace platform
