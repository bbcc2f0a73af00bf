#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "session/calls/changed_name.h"
#include "session/calls/directory_lock.h"
#include "session/calls/planners.h"

// Calls that remove a name: unlink, rmdir.

namespace session {

namespace {

planned remove(notification& call, int directory, int name, int flags)
{
    if ((flags & ~AT_REMOVEDIR) != 0)
        return fails(EINVAL);
    const bool of_directory = flags != 0;
    found_name found = named_place(call, directory, name);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    plan made;
    made.alone = std::make_shared<const directory_lock>(*found->directory);
    if (const int error = find_object(call, *found))
        return fails(error);
    if (found->certain && !found->exists())
        return fails(ENOENT);
    const auto gone = std::make_shared<const changed_name>(std::move(*found));
    if (gone->certain) {
        made.targets = {gone->directory};
        made.rights = [&call, gone, of_directory] { return taking_error(call, *gone, of_directory); };
        made.questions = {change_of_names(gone->directory),
                          {.asked = of_directory ? on_rmdir : on_unlink, .name = gone}};
    }
    made.carry_out = [gone, flags] {
        return answer::of_host(unlinkat(gone->directory->file().get(), gone->last.c_str(), flags));
    };
    made.finish = [gone](answer given) {
        note_loss(*gone);
        return given;
    };
    return made;
}

} // namespace

planned plan_unlink(notification& call)
{
    return remove(call, AT_FDCWD, 0, 0);
}

planned plan_rmdir(notification& call)
{
    return remove(call, AT_FDCWD, 0, AT_REMOVEDIR);
}

planned plan_unlinkat(notification& call)
{
    return remove(call, call.number(0), 1, call.number(2));
}

} // namespace session
