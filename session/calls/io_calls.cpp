#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"
#include "session/task/pinned.h"

// Reads and writes, where each of them is decided. The kernel does them: what the descriptor may be
// exchanged for meanwhile has been decided when it was opened.

namespace session {

namespace {

bool may(notification& call, int descriptor, int mask)
{
    unique_fd file = call.who().descriptor(descriptor);
    struct stat about;
    if (!file || fstat(file.get(), &about) != 0 || (!S_ISREG(about.st_mode) && !S_ISDIR(about.st_mode)))
        return true; // no error of ours, or nothing with a name
    const pinned_object object = pin(std::move(file), call.who());
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return false;
    const platform::event running(task);
    const platform::file_handle opened = platform::make_pinned_file(object.entry.get());
    return platform::call_file_permission(opened.get(), mask) == 0;
}

answer go_on_if(bool allowed)
{
    return allowed ? answer::let_go_on() : answer::fail(EPERM);
}

} // namespace

answer handle_read(notification& call)
{
    return go_on_if(may(call, call.number(0), kernel::may_read));
}

answer handle_write(notification& call)
{
    return go_on_if(may(call, call.number(0), kernel::may_write));
}

answer handle_sendfile(notification& call)
{
    return go_on_if(may(call, call.number(1), kernel::may_read) &&
                    may(call, call.number(0), kernel::may_write));
}

answer handle_splice(notification& call)
{
    return go_on_if(may(call, call.number(0), kernel::may_read) &&
                    may(call, call.number(2), kernel::may_write));
}

} // namespace session
