#include "session/session.h"

#include <unistd.h>

#include <filesystem>
#include <new>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "session/engine.h"
#include "session/state/notices.h"
#include "session/state/refusals.h"
#include "session/state/trouble.h"
#include "session/supervise.h"
#include "session/terminal.h"

namespace session {

namespace {

void check_proc()
{
    std::error_code error;
    if (std::filesystem::read_symlink("/proc/self", error) != std::to_string(getpid()))
        throw trouble(
            "/proc is not mounted, or it shows the processes of another pid namespace; mount proc there");
}

} // namespace

int run(const options& wanted)
{
    try {
        check_proc();
        engine loaded(wanted);
        const supervisor_signals signals;
        refusals told(!wanted.quiet);
        return supervise(wanted, loaded, signals, told);
    } catch (const trouble& reason) {
        say(reason.what());
    } catch (const std::system_error& error) {
        say(fmt::format("the host refuses what the session needs ({}); raise the limits on processes and "
                        "memory",
                        error.what()));
    } catch (const std::bad_alloc&) {
        say("no memory to start; raise the limit on memory");
    }
    return exit_failure;
}

} // namespace session
