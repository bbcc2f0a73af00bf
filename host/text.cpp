#include "host/text.h"

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

namespace host {

namespace {

unsigned char byte_at(std::string_view text, std::size_t at)
{
    return static_cast<unsigned char>(text[at]);
}

/// The bytes of the character that begins `text`, 0 when that is no UTF-8. (The Unicode Standard,
/// table 3-7: no overlong forms, no surrogates, nothing above U+10FFFF.)
std::size_t character_size(std::string_view text)
{
    const unsigned char first = byte_at(text, 0);
    if (first < 0x80)
        return 1;
    const std::size_t size = first >= 0xc2 && first <= 0xdf   ? 2
                             : first >= 0xe0 && first <= 0xef ? 3
                             : first >= 0xf0 && first <= 0xf4 ? 4
                                                              : 0;
    if (size == 0 || text.size() < size)
        return 0;
    const unsigned char lowest = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    const bool follows =
        byte_at(text, 1) >= lowest && byte_at(text, 1) <= highest &&
        std::ranges::all_of(text.substr(2, size - 2), [](unsigned char byte) { return byte >> 6 == 2; });
    return follows ? size : 0;
}

bool is_control(std::string_view character)
{
    const unsigned char first = byte_at(character, 0);
    return first < 0x20 || first == 0x7f ||
           (character.size() == 2 && first == 0xc2 && byte_at(character, 1) < 0xa0); // U+0080 to U+009F
}

} // namespace

std::string error_text(int number)
{
    return std::generic_category().message(number);
}

std::string visible(std::string_view text)
{
    std::string safe;
    while (!text.empty()) {
        const std::size_t size = character_size(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(size, 1));
        if (size == 0 || is_control(character)) {
            for (const char byte : character)
                safe += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
        } else {
            safe += character == "\\" ? "\\\\" : character;
        }
        text.remove_prefix(character.size());
    }
    return safe;
}

std::string brief(std::string_view text, std::size_t most)
{
    if (text.size() <= most)
        return visible(text);
    constexpr std::size_t longest_character = 4;
    std::size_t end = most;
    while (end > 0 && most - end < longest_character && byte_at(text, end) >> 6 == 2)
        --end;
    return visible(text.substr(0, end)) + "...";
}

} // namespace host
