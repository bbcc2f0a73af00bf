#include "session/state/trouble.h"

#include <unistd.h>

#include <system_error>

#include <fmt/format.h>

namespace session {

std::string error_text(int number)
{
    return std::generic_category().message(number);
}

void say(const std::string& text)
{
    // One write, so that lines of the supervised programs do not come between.
    const std::string line = "sorvanic: " + text + "\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::string printable(const std::string& text)
{
    std::string out;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7f || byte == '\\')
            out += fmt::format("\\{:03o}", byte);
        else
            out += character;
    }
    return out;
}

} // namespace session
