#include "session/task/known_tasks.h"

#include <sched.h>

namespace session {

namespace {

std::shared_ptr<shared_places> copy_of(const shared_places& from)
{
    auto made = std::make_shared<shared_places>();
    made->umask.store(from.umask.load());
    made->own_root.store(from.own_root.load());
    return made;
}

} // namespace

void known_tasks::begin_event(pid_t task)
{
    const std::lock_guard guard(lock_);
    const auto found = tasks_.find(task);
    if (found != tasks_.end()) {
        found->second.in_kernel = -1;
        found->second.moves.reset();
    }
}

known_task known_tasks::look_up(pid_t task)
{
    known_task seen;
    {
        const std::lock_guard guard(lock_);
        seen = tasks_[task];
    }
    if (seen.process != 0 && seen.rights != nullptr && seen.places->umask.load() >= 0 &&
        seen.places->certain.load())
        return seen;
    const auto status = read_status(task);
    if (!status)
        return seen;
    // Unless another thread has just set it.
    int unknown = -1;
    if (!seen.places->certain.load())
        seen.places->umask.store(static_cast<int>(status->umask));
    else
        seen.places->umask.compare_exchange_strong(unknown, static_cast<int>(status->umask));
    seen.process = status->process;
    seen.rights = std::make_shared<const credentials>(status->rights);
    const std::lock_guard guard(lock_);
    known_task& kept = tasks_[task];
    kept.process = seen.process;
    kept.rights = seen.rights;
    return seen;
}

void known_tasks::born(pid_t parent, unsigned long flags, pid_t child)
{
    const std::lock_guard guard(lock_);
    known_task made = tasks_[parent];
    made.in_kernel = -1;
    made.moves.reset();
    if ((flags & CLONE_THREAD) == 0)
        made.process = child;
    if ((flags & CLONE_FS) == 0)
        made.places = copy_of(*made.places);
    if ((flags & (CLONE_NEWUSER | CLONE_NEWNS)) != 0) {
        made.rights.reset();
        made.places->own_root.store(true);
    }
    tasks_.insert_or_assign(child, std::move(made));
}

void known_tasks::executed(pid_t process, pid_t former)
{
    const std::lock_guard guard(lock_);
    known_task of = std::move(tasks_[former]);
    tasks_.erase(former);
    of.process = process;
    of.rights.reset();
    tasks_.insert_or_assign(process, std::move(of));
}

void known_tasks::gone(pid_t task)
{
    const std::lock_guard guard(lock_);
    tasks_.erase(task);
}

void known_tasks::changes_rights(pid_t task)
{
    const std::lock_guard guard(lock_);
    tasks_[task].rights.reset();
}

void known_tasks::changes_umask(pid_t task, mode_t to)
{
    const std::lock_guard guard(lock_);
    tasks_[task].places->umask.store(static_cast<int>(to & 0777));
}

void known_tasks::changes_root(pid_t task)
{
    const std::lock_guard guard(lock_);
    tasks_[task].places->own_root.store(true);
}

void known_tasks::changes_all_roots()
{
    const std::lock_guard guard(lock_);
    for (auto& [task, known] : tasks_)
        known.places->own_root.store(true);
}

void known_tasks::changes_directory(pid_t task)
{
    const std::lock_guard guard(lock_);
    known_task& of = tasks_[task];
    of.moves = std::make_shared<const task_move>(of.places);
}

void known_tasks::goes_to_kernel(pid_t task, int number)
{
    const std::lock_guard guard(lock_);
    tasks_[task].in_kernel = number;
}

bool known_tasks::is_in_kernel(pid_t task, int number)
{
    const std::lock_guard guard(lock_);
    const auto found = tasks_.find(task);
    return found != tasks_.end() && found->second.in_kernel == number;
}

void known_tasks::unshares_places(pid_t task)
{
    const std::lock_guard guard(lock_);
    known_task& of = tasks_[task];
    // The table and the call have it.
    if (of.places.use_count() <= 2)
        return;
    // If the kernel fails the call, tasks that share it still change what this one remembers.
    of.places->certain.store(false);
    of.places->own_root.store(true);
    of.places = copy_of(*of.places);
    of.places->certain.store(false);
}

} // namespace session
