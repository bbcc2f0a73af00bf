#include "session/calls/opening.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/caller_limits.h"
#include "session/calls/harm.h"
#include "session/calls/namespace_files.h"
#include "session/calls/slow_open.h"
#include "session/calls/target.h"
#include "session/state/decision_log.h"
#include "session/state/enforcing.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr int open_mask = 0x20; // the kernel's MAY_OPEN

/// The accesses that inode_permission is asked about.
int access_mask(const open_request& wanted)
{
    int mask = wanted.reads() ? kernel::may_read : 0;
    if (wanted.writes() || wanted.has(O_TRUNC))
        mask |= kernel::may_write;
    if (wanted.has(O_APPEND))
        mask |= kernel::may_append;
    return mask;
}

/// The error of opening an object of this kind with these flags, whoever does it.
int kind_error(const struct stat& about, const open_request& wanted)
{
    const bool directory = S_ISDIR(about.st_mode);
    if (wanted.has(O_CREAT) && directory)
        return EISDIR;
    if (wanted.has(O_DIRECTORY) && !directory)
        return ENOTDIR;
    if (S_ISLNK(about.st_mode))
        return ELOOP;
    return directory && (access_mask(wanted) & kernel::may_write) != 0 ? EISDIR : 0;
}

/// Opening these has no effect yet, and shows whether the caller may.
bool opens_at_once(const pinned_object& object, const open_request& wanted)
{
    return (S_ISREG(object.about.st_mode) || object.is_directory()) && !wanted.has(O_TRUNC);
}

/// Opens it, unless that would have to wait for the holder of a lease. 0, or the error.
int open_without_waiting(const pinned_object& object, int flags, unique_fd& opened)
{
    opened = reopen(object.file().get(), flags | O_NONBLOCK);
    if (!opened)
        return errno == EWOULDBLOCK && (flags & O_NONBLOCK) == 0 ? 0 : errno;
    if ((flags & O_NONBLOCK) == 0)
        fcntl(opened.get(), F_SETFL, flags & ~O_NONBLOCK);
    return 0;
}

/// The kernel opens it in the caller's namespaces, but looks the name up again.
answer open_in_own_namespaces(const notification& call, const pinned_object& object)
{
    if (!is_enforcing())
        return answer::let_go_on();
    tell_own_refusal({call.who().task(), "open", "open", object.path.text},
                     "the session would open it in other namespaces than the process is in");
    return answer::fail(EPERM);
}

answer open_with_time(notification& call, const pinned_object& object, int flags, const open_request& wanted)
{
    answer given = open_slowly(call, object, flags);
    given.close_on_exec = wanted.has(O_CLOEXEC);
    return given;
}

} // namespace

resolved find_opened(const caller& who, const open_request& wanted)
{
    if (wanted.bounds != 0)
        return resolve_within(who, wanted.directory, wanted.name, wanted.flags, wanted.bounds);
    return resolve(who, wanted.directory, wanted.name, wanted.has(O_NOFOLLOW) ? AT_SYMLINK_NOFOLLOW : 0);
}

answer hand_over(unique_fd file, const open_request& wanted)
{
    return answer::hand_over(std::move(file), wanted.has(O_CLOEXEC));
}

std::vector<question> questions_of_use(const question& about, const open_request& wanted)
{
    std::vector<question> all;
    const auto ask = [&](int mask) {
        all.push_back(about);
        all.back().asked = on_file_permission;
        all.back().value = mask;
    };
    if (wanted.reads())
        ask(kernel::may_read);
    if (wanted.writes())
        ask(kernel::may_write);
    return all;
}

planned plan_opening(notification& call, resolved found, const open_request& wanted)
{
    const target object = share(std::move(found));
    if (const int error = kind_error(object->about, wanted))
        return fails(error);
    if (acts_on_other_namespace(call.who(), *object, wanted.writes()))
        return tl::unexpected(open_in_own_namespaces(call, *object));
    if (call.parts().rules.namespaces && maps_own_ids(call.who(), *object))
        return goes_on();
    plan made{.targets = {object}};
    made.only_to_read = (wanted.flags & (O_ACCMODE | O_TRUNC)) == O_RDONLY;

    const int flags = (wanted.flags & ~(O_CREAT | O_EXCL | O_NOFOLLOW)) | O_CLOEXEC | O_NOCTTY;
    const int mask = access_mask(wanted);
    made.questions = {access_to(object, mask | open_mask)};
    if (wanted.has(O_TRUNC))
        made.questions.push_back(attributes_of(object, mode_without_rights(object->about)));
    for (question& one : questions_of_use({.asked = on_file_permission, .object = object}, wanted))
        made.questions.push_back(std::move(one));

    if (wanted.writes())
        for (question& one : harm_to(call.who(), acted_on_by_writes(*object)))
            made.questions.push_back(std::move(one));

    if (opens_at_once(*object, wanted)) {
        const auto opened = std::make_shared<unique_fd>();
        made.rights = [&call, object, opened, flags] {
            const as_caller rights(call.who().rights());
            return open_without_waiting(*object, flags, *opened);
        };
        made.carry_out = [&call, object, opened, flags, wanted] {
            return *opened ? hand_over(std::move(*opened), wanted)
                           : open_with_time(call, *object, flags, wanted);
        };
    } else {
        made.rights = [&call, object, mask] {
            return access_error(call.who(), object->file(), mask & ~kernel::may_append);
        };
        made.carry_out = [&call, object, flags, wanted] {
            return has_room_for_descriptor(call.who()) ? open_with_time(call, *object, flags, wanted)
                                                       : answer::fail(EMFILE);
        };
    }
    made.own_rights = true;
    return made;
}

} // namespace session
