#include "enforce/first_password.h"

#include "core/base/proshell.h"
#include "enforce/file_check.h"
#include "platform/kernel/scoped.h"
#include "policy/uactivate.h"

using namespace kernel;

namespace {

constexpr char password_file[] = "/etc/shadow";

// An area of exactly this size is taken whole; a longer one also loses its last byte.
constexpr std::size_t most_argument_bytes = 4096;

/// The semaphore of an address space, held for reading.
class memory_map_guard : not_copied {
public:
    explicit memory_map_guard(mm_struct* of) : of_(of) { mm_down_read(of_); }
    ~memory_map_guard() { mm_up_read(of_); }

private:
    mm_struct* of_;
};

std::size_t argument_bytes(const mm_struct* mm)
{
    const unsigned long end = mm_arg_end(mm);
    if (end == 0)
        return 0;
    const std::size_t length = end - mm_arg_start(mm);
    return length > most_argument_bytes ? most_argument_bytes - 1 : length;
}

/// Copies from the start of the task's argument area and returns how many bytes there were, at
/// most most_argument_bytes; fewer when a page cannot be had.
std::size_t copy_arguments(task_struct* task, char* to)
{
    const mm_ref mm(get_task_mm(task));
    if (mm.get() == nullptr)
        return 0;
    const std::size_t wanted = argument_bytes(mm.get());
    const unsigned long start = mm_arg_start(mm.get());
    const memory_map_guard map(mm.get());
    std::size_t copied = 0;
    while (copied < wanted) {
        _cond_resched();
        page* pinned = nullptr;
        if (get_user_pages(task, mm.get(), start + copied, 1, 0, 1, &pinned) != 1)
            break;
        const std::size_t offset = (start + copied) % page_size;
        const std::size_t left_in_page = page_size - offset;
        const std::size_t part = wanted - copied < left_in_page ? wanted - copied : left_in_page;
        copy_from_page(to + copied, pinned, offset, part);
        put_page(pinned);
        copied += part;
    }
    return copied;
}

bool first_argument_is(task_struct* task, const char* user)
{
    const kmem<char> arguments(most_argument_bytes + 1); // its last byte stays a terminator
    if (!arguments)
        return false;
    const std::size_t copied = copy_arguments(task, arguments.get());
    const std::size_t second = strlen(arguments.get()) + 1;
    return second < copied && strncasecmp(arguments.get() + second, user, strlen(user)) == 0;
}

} // namespace

void note_first_password(task_struct* task, const char* user, const char* path, u32 mask)
{
    u32 state = first_login_cleared;
    if (strncasecmp(path, password_file, sizeof(password_file) - 1) != 0 || (mask & may_rename) == 0 ||
        sorvanic_kernel_uactivate_module.search(user, &state) != 0 || state != first_login_changing)
        return;
    if (!first_argument_is(task, user))
        return;
    sorvanic_kernel_uactivate_module.update(user, first_login_cleared);
    sorvanic_kernel_proshell_module.setkey();
    sorvanic_kernel_proshell_module.setuser(user);
}
