#include "session/exec/script.h"

#include <algorithm>
#include <string_view>

namespace session {

namespace {

bool is_blank(char character)
{
    return character == ' ' || character == '\t';
}

bool ends_name(char character)
{
    return is_blank(character) || character == '\0';
}

} // namespace

std::optional<interpreter_line> parse_interpreter_line(std::span<const char, program_head_size> head)
{
    if (head[0] != '#' || head[1] != '!')
        return std::nullopt;

    const char* const start = head.data() + 2;
    const char* const last = head.data() + head.size() - 1;
    const char* end = start;
    while (end <= last && *end != '\n' && *end != '\0')
        ++end;
    if (end > last || *end != '\n') {
        // Without a line end, a blank must end the name, because it may have been cut off.
        const char* const name = std::find_if_not(start, last + 1, is_blank);
        if (name > last || std::find_if(name, last + 1, ends_name) > last)
            return std::nullopt;
        end = last;
    }
    while (is_blank(end[-1]))
        --end;

    const char* const name = std::find_if_not(start, end, is_blank);
    if (name == end)
        return std::nullopt;
    const char* const name_end = std::find_if(name, end, ends_name);

    interpreter_line line{std::string(name, name_end), std::nullopt};
    const char* const argument =
        name_end < end && *name_end != '\0' ? std::find_if_not(name_end, end, is_blank) : end;
    if (argument != end)
        line.argument = std::string(argument, std::find(argument, end, '\0'));
    return line;
}

} // namespace session
