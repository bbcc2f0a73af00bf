#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/directory_change.h"
#include "session/calls/handlers.h"
#include "session/task/tracee_memory.h"

// Calls that take a name away or give a file another: unlink, rmdir, rename.

namespace session {

namespace {

constexpr std::size_t most_arguments = 8192; // more than the engine looks at

/// A file that may have lost its last name by what has just been done.
void note_loss(const unique_fd& object)
{
    struct stat about;
    if (object && fstat(object.get(), &about) == 0 && about.st_nlink == 0)
        platform::inode_gone(object.get());
}

answer remove(notification& call, int directory, int name, int flags)
{
    if ((flags & ~AT_REMOVEDIR) != 0)
        return answer::fail(EINVAL);
    const bool of_directory = flags != 0;
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    changed_name gone;
    if (const int error = find_directory(call, directory, passed.text, gone))
        return answer::fail(error);
    const directory_lock alone(gone.directory);
    if (const int error = find_object(call, gone))
        return answer::fail(error);
    if (gone.certain) {
        if (const int error = taking_error(call, gone, of_directory))
            return answer::fail(error);
    }
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    if (gone.certain) {
        const platform::event running(task);
        const platform::dentry_handle entry = gone.entry();
        if (!may_change_names(gone.directory) ||
            (of_directory ? platform::call_inode_rmdir(gone.directory.inode(), entry.get())
                          : platform::call_inode_unlink(gone.directory.inode(), entry.get())) != 0)
            return answer::fail(EPERM);
    }
    answer given = answer::succeed();
    {
        const as_caller rights(call.who().rights());
        given = answer::of_host(unlinkat(gone.directory.file().get(), gone.last.c_str(), flags));
    }
    note_loss(gone.object);
    return given;
}

bool same_file(const changed_name& one, const changed_name& other)
{
    return one.exists() && other.exists() && one.about.st_ino == other.about.st_ino &&
           one.about.st_dev == other.about.st_dev;
}

std::uint64_t mount_of(const unique_fd& file)
{
    struct statx about = {};
    return statx(file.get(), "", AT_EMPTY_PATH, STATX_MNT_ID, &about) == 0 ? about.stx_mnt_id : 0;
}

bool same_directory(const changed_name& one, const changed_name& other)
{
    return one.directory.about.st_ino == other.directory.about.st_ino &&
           one.directory.about.st_dev == other.directory.about.st_dev;
}

/// What the caller's own rights say to a rename; 0 for nothing.
int renaming_error(const notification& call, const changed_name& from, const changed_name& to, unsigned flags)
{
    const bool exchange = (flags & RENAME_EXCHANGE) != 0;
    if (!from.exists() || (exchange && !to.exists()))
        return ENOENT;
    if ((flags & RENAME_NOREPLACE) != 0 && to.exists())
        return EEXIST;
    const bool directory = S_ISDIR(from.about.st_mode);
    if (const int error = taking_error(call, from, directory))
        return error;
    if (const int error = to.exists()
                              ? taking_error(call, to, exchange ? S_ISDIR(to.about.st_mode) : directory)
                              : making_error(call, to))
        return error;
    // Its ".." is going to change.
    return directory && !same_directory(from, to) ? access_error(call.who(), from.object, W_OK) : 0;
}

/// Whether the hooks let it happen. Within an event.
bool may_rename(const changed_name& from, const changed_name& to, unsigned flags)
{
    if (!may_change_names(from.directory) || !may_change_names(to.directory))
        return false;
    const platform::dentry_handle old_entry = from.entry();
    const platform::dentry_handle new_entry = to.entry();
    kernel::inode* const old_directory = from.directory.inode();
    kernel::inode* const new_directory = to.directory.inode();
    const bool exchange = (flags & RENAME_EXCHANGE) != 0;
    const auto may_move = [&](const changed_name& moved, kernel::dentry* entry) {
        return same_directory(from, to) || !S_ISDIR(moved.about.st_mode) ||
               platform::call_inode_permission(kernel::dentry_inode(entry), kernel::may_write) == 0;
    };
    if (!may_move(from, old_entry.get()) || (exchange && !may_move(to, new_entry.get())))
        return false;
    return platform::call_inode_rename(old_directory, old_entry.get(), new_directory, new_entry.get()) == 0 &&
           (!exchange ||
            platform::call_inode_rename(new_directory, new_entry.get(), old_directory, old_entry.get()) == 0);
}

answer rename(notification& call, int old_directory, int old_name, int directory, int name, unsigned flags)
{
    if ((flags & ~unsigned{RENAME_NOREPLACE | RENAME_EXCHANGE | RENAME_WHITEOUT}) != 0 ||
        ((flags & RENAME_EXCHANGE) != 0 && (flags & (RENAME_NOREPLACE | RENAME_WHITEOUT)) != 0))
        return answer::fail(EINVAL);
    const passed_name old_passed = call.name(old_name);
    const passed_name new_passed = call.name(name);
    if (old_passed.error != 0 || new_passed.error != 0)
        return answer::fail(old_passed.error != 0 ? old_passed.error : new_passed.error);
    changed_name from;
    changed_name to;
    if (const int error = find_directory(call, old_directory, old_passed.text, from))
        return answer::fail(error);
    if (const int error = find_directory(call, directory, new_passed.text, to))
        return answer::fail(error);
    const directory_lock alone(from.directory, to.directory);
    for (changed_name* const one : {&from, &to}) {
        if (const int error = find_object(call, *one))
            return answer::fail(error);
    }
    // From one mount to another the host moves nothing; two names of one file it leaves as they are.
    const bool certain = from.certain && to.certain &&
                         mount_of(from.directory.file()) == mount_of(to.directory.file()) &&
                         ((flags & RENAME_NOREPLACE) != 0 || !same_file(from, to));
    if (certain) {
        if (const int error = renaming_error(call, from, to, flags))
            return answer::fail(error);
    }
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    if (certain) {
        // A first password counts as set when its user's program renames the password file.
        platform::set_arguments(task, program_arguments(call.who().task(), most_arguments));
        const platform::event running(task);
        if (!may_rename(from, to, flags))
            return answer::fail(EPERM);
    }
    answer given = answer::succeed();
    {
        const as_caller rights(call.who().rights());
        given = answer::of_host(syscall(SYS_renameat2, from.directory.file().get(), from.last.c_str(),
                                        to.directory.file().get(), to.last.c_str(), flags));
    }
    note_loss(to.object);
    return given;
}

} // namespace

answer handle_unlink(notification& call)
{
    return remove(call, AT_FDCWD, 0, 0);
}

answer handle_rmdir(notification& call)
{
    return remove(call, AT_FDCWD, 0, AT_REMOVEDIR);
}

answer handle_unlinkat(notification& call)
{
    return remove(call, call.number(0), 1, call.number(2));
}

answer handle_rename(notification& call)
{
    return rename(call, AT_FDCWD, 0, AT_FDCWD, 1, 0);
}

answer handle_renameat(notification& call)
{
    return rename(call, call.number(0), 1, call.number(2), 3, 0);
}

answer handle_renameat2(notification& call)
{
    return rename(call, call.number(0), 1, call.number(2), 3, static_cast<unsigned>(call.argument(4)));
}

} // namespace session
