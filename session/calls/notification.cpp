#include "session/calls/notification.h"

#include <cerrno>

#include "session/task/tracee_memory.h"

namespace session {

answer answer::of_host(long result)
{
    return result < 0 ? fail(errno) : succeed(result);
}

notification::notification(const seccomp_notif& call, listener& from, session_parts& parts)
    : call_(call), from_(from), parts_(parts),
      who_(static_cast<pid_t>(call.pid), parts.tasks.look_up(static_cast<pid_t>(call.pid)))
{
}

passed_name notification::name(int which) const
{
    std::string text;
    const int error = read_name(who_.task(), argument(which), text);
    if (error == EFAULT)
        unreadable_ |= !may_read_memory(who_.task());
    if (error != 0)
        return tl::unexpected(error);
    return text;
}

bool notification::read(std::uint64_t address, void* into, std::size_t size) const
{
    const bool done = read_memory(who_.task(), address, into, size);
    if (!done)
        unreadable_ |= !may_read_memory(who_.task());
    return done;
}

kernel::task_struct* notification::task()
{
    if (!task_ && still_waits())
        task_ = platform::find_task(who_.task());
    return task_.get();
}

bool notification::still_waits() const
{
    return from_.is_waiting(call_.id);
}

} // namespace session
