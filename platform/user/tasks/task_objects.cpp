#include "platform/user/tasks/task_objects.h"

#include <algorithm>
#include <cstring>

#include "platform/user/files/open_file.h"

namespace platform {

kernel::task_struct* hold(kernel::task_struct* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::task_struct* dropped)
{
    if (dropped->references.fetch_sub(1) != 1)
        return;
    kernel::task_struct* parent = dropped->parent;
    if (kernel::mm_struct* mm = dropped->mm)
        drop(mm);
    delete dropped;
    if (parent != nullptr && parent != dropped)
        drop(parent);
}

kernel::mm_struct* hold(kernel::mm_struct* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::mm_struct* dropped)
{
    if (dropped->references.fetch_sub(1) == 1)
        delete dropped;
}

kernel::mm_struct* make_mm(kernel::file* program)
{
    if (program == nullptr)
        return nullptr;
    auto* made = new kernel::mm_struct;
    made->exe.reset(hold(program));
    return made;
}

void set_comm(kernel::task_struct& of, std::string_view comm)
{
    const std::size_t size = std::min(comm.size(), sizeof of.comm - 1);
    std::memset(of.comm, 0, sizeof of.comm);
    std::memcpy(of.comm, comm.data(), size);
}

void set_parent(kernel::task_struct& of, kernel::task_struct* parent)
{
    kernel::task_struct* former = of.parent.exchange(parent == &of ? parent : hold(parent));
    if (former != nullptr && former != &of)
        drop(former);
}

} // namespace platform
