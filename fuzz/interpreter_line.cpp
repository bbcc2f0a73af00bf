// The head of a program file, with a "#!" line or without.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "session/exec/script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::array<char, session::program_head_size> head = {};
    std::copy_n(data, std::min(size, head.size()), head.begin());
    const auto line = session::parse_interpreter_line(head);
    if (!line)
        return 0;
    // Either may be empty: a zero byte ends it.
    const auto& [interpreter, argument] = *line;
    if (interpreter.find_first_of(std::string_view(" \t\n\0", 4)) != std::string::npos)
        std::abort();
    if (argument && argument->find_first_of(std::string_view("\n\0", 2)) != std::string::npos)
        std::abort();
    if (argument && (argument->starts_with(' ') || argument->starts_with('\t')))
        std::abort();
    return 0;
}
