#include "session/state/trouble.h"

#include <unistd.h>

namespace session {

void say(const std::string& text)
{
    // One write, so that lines of the supervised programs do not come between.
    const std::string line = "sorvanic: " + text + "\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace session
