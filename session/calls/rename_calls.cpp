#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

#include "core/counters.h"
#include "platform/kernel/security.h"
#include "session/calls/changed_name.h"
#include "session/calls/directory_lock.h"
#include "session/calls/planners.h"
#include "session/state/enforcing.h"

// Calls that rename a file, or exchange the names of two.

namespace session {

namespace {

bool same_file(const changed_name& one, const changed_name& other)
{
    return one.exists() && other.exists() && one.about.st_ino == other.about.st_ino &&
           one.about.st_dev == other.about.st_dev;
}

bool same_directory(const changed_name& one, const changed_name& other)
{
    return one.directory->about.st_ino == other.directory->about.st_ino &&
           one.directory->about.st_dev == other.directory->about.st_dev;
}

std::uint64_t mount_of(const unique_fd& file)
{
    struct statx about = {};
    if (statx(file.get(), "", AT_EMPTY_PATH, STATX_MNT_ID, &about) != 0)
        throw std::system_error(errno, std::generic_category(), "statx");
    return about.stx_mnt_id;
}

/// Whether the host would change anything: it moves nothing from one mount to another, and leaves two names
/// of one file as they are.
bool changes_anything(const changed_name& from, const changed_name& to, unsigned flags)
{
    return from.certain && to.certain && mount_of(from.directory->file()) == mount_of(to.directory->file()) &&
           ((flags & RENAME_NOREPLACE) != 0 || !same_file(from, to));
}

/// The error for a name that exists and should not, or the opposite; 0 for none.
int presence_error(const changed_name& from, const changed_name& to, unsigned flags)
{
    if (!from.exists() || ((flags & RENAME_EXCHANGE) != 0 && !to.exists()))
        return ENOENT;
    return (flags & RENAME_NOREPLACE) != 0 && to.exists() ? EEXIST : 0;
}

/// Whether the session depends on paths below this directory: rules know files by their paths, and the
/// session's own directories must stay where they are looked for.
bool carries_rules(const notification& call, const changed_name& moved)
{
    if (!S_ISDIR(moved.about.st_mode) || !is_enforcing())
        return false;
    std::string path = moved.directory->path.text;
    path += (path == "/" ? "" : "/") + moved.last.substr(0, moved.last.find('/'));
    return is_above_controlled(path.c_str()) || call.parts().state.path().starts_with(path + "/") ||
           call.parts().policy.path().starts_with(path + "/");
}

/// The error for lack of the caller's rights; 0 for none.
int rights_error(const notification& call, const changed_name& from, const changed_name& to, unsigned flags)
{
    const bool exchange = (flags & RENAME_EXCHANGE) != 0;
    const bool directory = S_ISDIR(from.about.st_mode);
    if (const int error = taking_error(call, from, directory))
        return error;
    if (const int error = to.exists()
                              ? taking_error(call, to, exchange ? S_ISDIR(to.about.st_mode) : directory)
                              : changing_error(call, to.directory))
        return error;
    // Its ".." is going to change.
    if (const int error =
            directory && !same_directory(from, to) ? access_error(call.who(), from.object, W_OK) : 0)
        return error;
    return carries_rules(call, from) || (exchange && carries_rules(call, to)) ? EPERM : 0;
}

std::vector<question> questions_about(const shared_name& from, const shared_name& to, bool exchange)
{
    std::vector<question> all = {change_of_names(from->directory), change_of_names(to->directory)};
    const auto ask_about_move = [&](const shared_name& moved) {
        if (!same_directory(*from, *to) && S_ISDIR(moved->about.st_mode))
            all.push_back({.asked = on_inode_permission, .value = kernel::may_write, .name = moved});
    };
    ask_about_move(from);
    if (exchange)
        ask_about_move(to);
    all.push_back({.asked = on_rename, .name = from, .new_name = to});
    if (exchange)
        all.push_back({.asked = on_rename, .name = to, .new_name = from});
    return all;
}

planned rename(notification& call, int old_directory, int old_name, int directory, int name, unsigned flags)
{
    const bool exchange = (flags & RENAME_EXCHANGE) != 0;
    if ((flags & ~unsigned{RENAME_NOREPLACE | RENAME_EXCHANGE | RENAME_WHITEOUT}) != 0 ||
        (exchange && (flags & (RENAME_NOREPLACE | RENAME_WHITEOUT)) != 0))
        return fails(EINVAL);
    found_name old_place = named_place(call, old_directory, old_name);
    if (!old_place)
        return tl::unexpected(std::move(old_place.error()));
    found_name new_place = named_place(call, directory, name);
    if (!new_place)
        return tl::unexpected(std::move(new_place.error()));
    plan made;
    made.alone = std::make_shared<const directory_lock>(*old_place->directory, *new_place->directory);
    for (changed_name* const one : {&*old_place, &*new_place}) {
        if (const int error = find_object(call, *one))
            return fails(error);
    }
    const auto from = std::make_shared<const changed_name>(std::move(*old_place));
    const auto to = std::make_shared<const changed_name>(std::move(*new_place));
    if (changes_anything(*from, *to, flags)) {
        if (const int error = presence_error(*from, *to, flags))
            return fails(error);
        made.targets = {from->directory, to->directory};
        made.rights = [&call, from, to, flags] { return rights_error(call, *from, *to, flags); };
        // A first password counts as set when its user's program renames the password file.
        made.tells_arguments = true;
        made.questions = questions_about(from, to, exchange);
    }
    made.carry_out = [from, to, flags] {
        return answer::of_host(syscall(SYS_renameat2, from->directory->file().get(), from->last.c_str(),
                                       to->directory->file().get(), to->last.c_str(), flags));
    };
    made.finish = [to](answer given) {
        note_loss(*to);
        return given;
    };
    return made;
}

} // namespace

planned plan_rename(notification& call)
{
    return rename(call, AT_FDCWD, 0, AT_FDCWD, 1, 0);
}

planned plan_renameat(notification& call)
{
    return rename(call, call.number(0), 1, call.number(2), 3, 0);
}

planned plan_renameat2(notification& call)
{
    return rename(call, call.number(0), 1, call.number(2), 3, static_cast<unsigned>(call.argument(4)));
}

} // namespace session
