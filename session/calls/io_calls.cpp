#include <sys/mman.h>
#include <sys/stat.h>

#include <initializer_list>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"

// Reads and writes, in sessions that decide each of them. The kernel does them: if the descriptor is
// exchanged meanwhile, the other file was decided when it was opened.

namespace session {

namespace {

struct use {
    int descriptor;
    int mask;
};

planned plan_uses(notification& call, std::initializer_list<use> uses)
{
    plan made;
    for (const use& one : uses) {
        if (one.mask == 0)
            continue;
        unique_fd file = call.who().descriptor(one.descriptor);
        struct stat about;
        // Other objects have no name, and the kernel fails a bad descriptor.
        if (file && fstat(file.get(), &about) == 0 && (S_ISREG(about.st_mode) || S_ISDIR(about.st_mode)))
            made.questions.push_back({on_file_permission, one.mask, share(std::move(file))});
    }
    made.carry_out = [&call] {
        call.parts().tasks.goes_to_kernel(call.who().task(), call.system_call());
        return answer::let_go_on();
    };
    made.own_rights = true;
    return made;
}

} // namespace

planned plan_read(notification& call)
{
    return plan_uses(call, {{call.number(0), kernel::may_read}});
}

planned plan_write(notification& call)
{
    return plan_uses(call, {{call.number(0), kernel::may_write}});
}

planned plan_sendfile(notification& call)
{
    return plan_uses(call, {{call.number(1), kernel::may_read}, {call.number(0), kernel::may_write}});
}

planned plan_splice(notification& call)
{
    return plan_uses(call, {{call.number(0), kernel::may_read}, {call.number(2), kernel::may_write}});
}

// What is mapped can be read and written later without a call, as far as the descriptor permits: mprotect may
// add to the protection.
planned plan_map(notification& call)
{
    const bool is_shared = (call.number(3) & MAP_TYPE) != MAP_PRIVATE;
    const int file = call.number(4);
    const open_mode opened = call.who().mode_of(file);
    const bool may_be_written = opened.writes || !opened.reads; // or it is not known
    return plan_uses(call,
                     {{file, kernel::may_read}, {file, is_shared && may_be_written ? kernel::may_write : 0}});
}

} // namespace session
