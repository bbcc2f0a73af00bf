#include <algorithm>
#include <array>
#include <cstring>

#include "platform/kernel/errno.h"
#include "platform/kernel/mm.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/tasks/task_table.h"

// The part of the memory of processes that the engine reads: their argument areas.

namespace kernel {

struct page {
    std::array<char, page_size> content;
};

} // namespace kernel

namespace platform {

namespace {

// Just below a page's end, so that nearly every area lies in several pages.
constexpr unsigned long area_start = 0x7ffc00000ff0;
constexpr char beside_area = 0x5a;

unsigned long page_start(unsigned long address)
{
    return address - address % kernel::page_size;
}

/// The page from `address` on, or null when nothing of the area lies in it.
kernel::page* copy_page(const std::string& area, unsigned long address)
{
    const unsigned long from = std::max(address, area_start);
    const unsigned long to = std::min(address + kernel::page_size, area_start + area.size());
    if (from >= to)
        return nullptr;
    auto* copy = new kernel::page;
    copy->content.fill(beside_area);
    std::memcpy(&copy->content[from - address], &area[from - area_start], to - from);
    return copy;
}

} // namespace

} // namespace platform

namespace kernel {

unsigned long mm_arg_start(const mm_struct* of)
{
    return platform::arguments_of(of) != nullptr ? platform::area_start : 0;
}

unsigned long mm_arg_end(const mm_struct* of)
{
    const auto area = platform::arguments_of(of);
    return area != nullptr ? platform::area_start + area->size() : 0;
}

int get_user_pages(task_struct*, mm_struct* in, unsigned long start, int count, int, int, page** pinned)
{
    platform::might_sleep("get_user_pages");
    if (in->readers == 0)
        platform::die("get_user_pages without the semaphore");
    if (platform::fails_now(platform::fault::user_page))
        return -error_fault;
    const auto area = platform::arguments_of(in);
    int pages = 0;
    for (unsigned long at = platform::page_start(start); area != nullptr && pages < count; at += page_size) {
        pinned[pages] = platform::copy_page(*area, at);
        if (pinned[pages] == nullptr)
            break;
        platform::count(platform::counted::references, 1);
        ++pages;
    }
    return pages > 0 ? pages : -error_fault;
}

void put_page(page* released)
{
    platform::count(platform::counted::references, -1);
    delete released;
}

void copy_from_page(char* to, const page* from, std::size_t offset, std::size_t size)
{
    if (offset > page_size || size > page_size - offset)
        platform::die("copy_from_page beyond the page");
    std::memcpy(to, &from->content[offset], size);
}

void _cond_resched()
{
    platform::might_sleep("_cond_resched");
}

} // namespace kernel
