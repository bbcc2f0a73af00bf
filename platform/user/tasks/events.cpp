#include <utility>

#include "platform/user/driver/tasks.h"
#include "platform/user/files/pinned_names.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/tasks/task_objects.h"

namespace platform {

struct event::state {
    pinned_names names;
    task_handle task;
    kernel::task_struct* outer_task = nullptr;
    pinned_names* outer_names = nullptr;
};

event::event(kernel::task_struct* task) : state_(new state)
{
    thread_state& thread = this_thread();
    state_->task.reset(hold(task));
    state_->outer_task = std::exchange(thread.current, task);
    state_->outer_names = std::exchange(thread.pinned, &state_->names);
}

event::~event()
{
    thread_state& thread = this_thread();
    thread.current = state_->outer_task;
    thread.pinned = state_->outer_names;
}

void remember_pinned(std::string_view path, const std::shared_ptr<const unique_fd>& object)
{
    if (pinned_names* names = this_thread().pinned)
        names->remember(path, object);
}

std::shared_ptr<const unique_fd> find_pinned(std::string_view path)
{
    const pinned_names* names = this_thread().pinned;
    return names != nullptr ? names->find(path) : nullptr;
}

} // namespace platform
