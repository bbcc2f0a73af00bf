#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <utility>

#include "session/calls/changed_name.h"
#include "session/calls/directory_lock.h"
#include "session/calls/opening.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr int link_limit = 40; // the kernel's

/// The strictest when it cannot be read.
int sysctl_number(const char* path)
{
    int value = 2;
    std::ifstream(path) >> value;
    return value;
}

/// fs.protected_regular and fs.protected_fifos: creating opens of files that others have put into a directory
/// that many may write to.
bool is_protected(const credentials& who, const unique_fd& in, const unique_fd& found)
{
    static const int regular = sysctl_number("/proc/sys/fs/protected_regular");
    static const int fifos = sysctl_number("/proc/sys/fs/protected_fifos");
    struct stat directory = {};
    struct stat file = {};
    if (fstat(in.get(), &directory) != 0 || fstat(found.get(), &file) != 0)
        return true;
    const int level = S_ISREG(file.st_mode) ? regular : S_ISFIFO(file.st_mode) ? fifos : 0;
    if (level == 0 || (directory.st_mode & S_ISVTX) == 0 || directory.st_uid == file.st_uid ||
        who.user == file.st_uid)
        return false;
    return (directory.st_mode & S_IWOTH) != 0 || ((directory.st_mode & S_IWGRP) != 0 && level >= 2);
}

/// The place where a creating open would make a file, and the object there, if any.
struct creation_place {
    resolved_parent parent;
    unique_fd found = {};
};

using found_place = tl::expected<creation_place, int>;

/// Finds the object of the place's name with the caller's rights; 0, or the error of the look-up.
int look(const caller& who, creation_place& place, struct stat& about)
{
    const as_caller rights(who.rights());
    place.found.reset(
        ::openat(place.parent.directory.get(), place.parent.last.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place.found)
        return errno == ENOENT ? 0 : errno;
    return fstat(place.found.get(), &about) == 0 ? 0 : errno;
}

/// Where a file would be made through the link at the place, which leads to nothing.
resolved_parent behind_link(const caller& who, creation_place& place)
{
    char text[PATH_MAX];
    const ssize_t size = readlinkat(place.found.get(), "", text, sizeof text);
    if (size <= 0 || size == static_cast<ssize_t>(sizeof text))
        return {{}, "", ENOENT};
    return resolve_parent_from(who, place.parent.directory, {text, static_cast<std::size_t>(size)});
}

/// Follows links as long as they lead to names that do not exist: a creating open makes a file
/// at the end of them.
found_place find_place(const caller& who, const open_request& wanted)
{
    creation_place place{resolve_parent(who, wanted.directory, wanted.name)};
    for (int links = 0; place.parent.error == 0; ++links) {
        resolved_parent& parent = place.parent;
        if (!parent.is_name() || parent.last.ends_with('/'))
            return place;
        struct stat about = {};
        if (const int error = look(who, place, about))
            return tl::unexpected(error);
        if (!place.found || !S_ISLNK(about.st_mode) || (wanted.flags & (O_NOFOLLOW | O_EXCL)) != 0)
            return place;
        if (links == link_limit)
            return tl::unexpected(ELOOP);
        if (resolved end = resolve_link(who, parent.directory, parent.last); end.error != ENOENT) {
            place.found = std::move(end.file);
            if (end.error != 0)
                return tl::unexpected(end.error);
            return place;
        }
        parent = behind_link(who, place);
        place.found.reset();
    }
    return tl::unexpected(place.parent.error);
}

/// Makes the file, unless one of that name has appeared meanwhile.
answer make_file(const changed_name& fresh, const open_request& wanted, mode_t mode)
{
    unique_fd file(::openat(fresh.directory->file().get(), fresh.last.c_str(),
                            wanted.flags | O_EXCL | O_CLOEXEC | O_NOCTTY, mode));
    if (file)
        return hand_over(std::move(file), wanted);
    return errno == EEXIST ? answer::once_more() : answer::fail(errno);
}

/// file_permission is asked only after the file was made, because before there is none.
answer check_use(notification& call, answer given, const changed_name& fresh, const open_request& wanted)
{
    if (!given.file)
        return given;
    const auto made = std::make_shared<const changed_name>(
        changed_name{fresh.directory, fresh.last, duplicate_of(given.file)});
    const auto questions = questions_of_use({.asked = on_file_permission, .name = made}, wanted);
    return allowed(call, questions) ? std::move(given) : answer::fail(EPERM);
}

planned plan_new_file(notification& call, resolved_parent parent, const open_request& wanted)
{
    const target directory = share(std::move(parent.directory));
    const auto fresh = std::make_shared<const changed_name>(changed_name{directory, std::move(parent.last)});
    plan made{.targets = {directory}};
    made.alone = std::make_shared<const directory_lock>(*directory);
    made.rights = [&call, directory] { return changing_error(call, directory); };
    const mode_t mode = without_umask(call.who(), directory->file(), wanted.mode & 07777);
    made.questions = {change_of_names(directory),
                      {.asked = on_create, .value = static_cast<int>(S_IFREG | mode), .name = fresh}};
    made.carry_out = [fresh, wanted, mode] { return make_file(*fresh, wanted, mode); };
    made.finish = [&call, fresh, wanted](answer given) {
        return check_use(call, std::move(given), *fresh, wanted);
    };
    return made;
}

/// The same within bounds. A link that leads to nothing could leave them, so that nothing is made behind it.
found_place find_place_within(const caller& who, const open_request& wanted)
{
    creation_place place{resolve_parent_within(who, wanted.directory, wanted.name, wanted.bounds)};
    if (place.parent.error != 0)
        return tl::unexpected(place.parent.error);
    if (!place.parent.is_name()) {
        if (const int error = find_opened(who, wanted).error)
            return tl::unexpected(error);
        return place;
    }
    if (place.parent.last.ends_with('/'))
        return place;
    struct stat about = {};
    if (const int error = look(who, place, about))
        return tl::unexpected(error);
    if (!place.found || !S_ISLNK(about.st_mode) || (wanted.flags & (O_NOFOLLOW | O_EXCL)) != 0)
        return place;
    resolved end = find_opened(who, wanted);
    if (end.error != 0)
        return tl::unexpected(end.error == ENOENT ? ENOSYS : end.error);
    place.found = std::move(end.file);
    return place;
}

} // namespace

planned plan_creation(notification& call, const open_request& wanted)
{
    found_place place =
        wanted.bounds != 0 ? find_place_within(call.who(), wanted) : find_place(call.who(), wanted);
    if (!place)
        return fails(place.error());
    const resolved_parent& parent = place->parent;
    if (!parent.is_name())
        return fails(wanted.has(O_EXCL) ? EEXIST : EISDIR);
    if (parent.last.ends_with('/'))
        return fails(EISDIR);
    if (!place->found)
        return plan_new_file(call, std::move(place->parent), wanted);
    if (wanted.has(O_EXCL))
        return fails(EEXIST);
    if (is_protected(call.who().rights(), parent.directory, place->found))
        return fails(EACCES);
    return plan_opening(call, {std::move(place->found)}, wanted);
}

} // namespace session
