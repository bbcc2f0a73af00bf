#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/changed_name.h"
#include "session/calls/directory_lock.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

// Calls that make a name: mknod, mkdir, symlink, link.

namespace session {

namespace {

/// One such call. `ask(name, questions)` adds the questions of its hook about the new name; `make(directory,
/// last)` makes it on the host.
template <typename Ask, typename Make>
planned make_name(notification& call, int directory, int name, Ask ask, Make make)
{
    found_name found = named_place(call, directory, name);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    plan made;
    made.alone = std::make_shared<const directory_lock>(*found->directory);
    if (const int error = find_object(call, *found))
        return fails(error);
    if (found->certain && found->exists())
        return fails(EEXIST);
    const auto fresh = std::make_shared<const changed_name>(std::move(*found));
    if (fresh->certain) {
        made.targets = {fresh->directory};
        made.rights = [&call, fresh] { return changing_error(call, fresh->directory); };
        made.questions = {change_of_names(fresh->directory)};
        ask(fresh, made.questions);
    }
    made.carry_out = [fresh, make] { return answer::of_host(make(*fresh->directory, fresh->last.c_str())); };
    return made;
}

planned make_node(notification& call, int directory, int name, mode_t mode, dev_t device)
{
    const mode_t type = mode & S_IFMT;
    const auto permissions = [&call, mode](const pinned_object& in) {
        return without_umask(call.who(), in.file(), mode & 07777);
    };
    const auto ask = [&](const shared_name& fresh, std::vector<question>& questions) {
        // Fifos, sockets and devices have a hook of their own, which the engine does not use.
        if (type == 0 || type == S_IFREG)
            questions.push_back({.asked = on_create,
                                 .value = static_cast<int>(S_IFREG | permissions(*fresh->directory)),
                                 .name = fresh});
    };
    return make_name(call, directory, name, ask,
                     [permissions, type, device](const pinned_object& in, const char* last) {
                         return mknodat(in.file().get(), last, type | permissions(in), device);
                     });
}

planned make_directory(notification& call, int directory, int name, mode_t mode)
{
    const auto permissions = [&call, mode](const pinned_object& in) {
        return without_umask(call.who(), in.file(), mode & 01777);
    };
    const auto ask = [&](const shared_name& fresh, std::vector<question>& questions) {
        questions.push_back(
            {.asked = on_mkdir, .value = static_cast<int>(permissions(*fresh->directory)), .name = fresh});
    };
    return make_name(call, directory, name, ask, [permissions](const pinned_object& in, const char* last) {
        return mkdirat(in.file().get(), last, permissions(in));
    });
}

planned make_symlink(notification& call, int directory, int name)
{
    const passed_name text = call.name(0);
    if (!text || text->empty())
        return fails(text ? ENOENT : text.error());
    const auto ask = [&](const shared_name& fresh, std::vector<question>& questions) {
        questions.push_back({.asked = on_symlink, .name = fresh, .text = *text});
    };
    return make_name(call, directory, name, ask, [text = *text](const pinned_object& in, const char* last) {
        return symlinkat(text.c_str(), in.file().get(), last);
    });
}

planned make_link(notification& call, int old_directory, int old_name, int directory, int name, int flags)
{
    if ((flags & ~(AT_SYMLINK_FOLLOW | AT_EMPTY_PATH)) != 0)
        return fails(EINVAL);
    found_target found =
        named_target(call, old_directory, old_name,
                     (flags & AT_EMPTY_PATH) | ((flags & AT_SYMLINK_FOLLOW) != 0 ? 0 : AT_SYMLINK_NOFOLLOW));
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto ask = [&](const shared_name& fresh, std::vector<question>& questions) {
        questions.push_back({.asked = on_link, .object = object, .name = fresh});
    };
    planned made = make_name(call, directory, name, ask, [object](const pinned_object& in, const char* last) {
        return linkat(AT_FDCWD, link_to(object->file().get()).c_str(), in.file().get(), last,
                      AT_SYMLINK_FOLLOW);
    });
    if (made)
        made->targets.push_back(object);
    return made;
}

mode_t mode_in(const notification& call, int which)
{
    return static_cast<mode_t>(call.argument(which));
}

} // namespace

planned plan_mknod(notification& call)
{
    return make_node(call, AT_FDCWD, 0, mode_in(call, 1), static_cast<unsigned>(call.argument(2)));
}

planned plan_mknodat(notification& call)
{
    return make_node(call, call.number(0), 1, mode_in(call, 2), static_cast<unsigned>(call.argument(3)));
}

planned plan_mkdir(notification& call)
{
    return make_directory(call, AT_FDCWD, 0, mode_in(call, 1));
}

planned plan_mkdirat(notification& call)
{
    return make_directory(call, call.number(0), 1, mode_in(call, 2));
}

planned plan_symlink(notification& call)
{
    return make_symlink(call, AT_FDCWD, 1);
}

planned plan_symlinkat(notification& call)
{
    return make_symlink(call, call.number(1), 2);
}

planned plan_link(notification& call)
{
    return make_link(call, AT_FDCWD, 0, AT_FDCWD, 1, 0);
}

planned plan_linkat(notification& call)
{
    return make_link(call, call.number(0), 1, call.number(2), 3, call.number(4));
}

} // namespace session
