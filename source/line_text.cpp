#include "source/line_text.h"

#include <charconv>

#include <fmt/format.h>

#include "host/text.h"

namespace source {

std::string shown(std::string_view text)
{
    constexpr std::size_t most = 60;
    return fmt::format("\"{}\"", host::brief(text, most));
}

std::optional<std::int32_t> number(std::string_view text)
{
    std::int32_t value = 0;
    const auto [end, failure] = std::from_chars(text.begin(), text.end(), value);
    if (failure != std::errc() || end != text.end() || value < 0 || text.front() == '-')
        return std::nullopt;
    return value;
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (auto end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.push_back(text);
    return parts;
}

std::optional<std::string> wrong_start(std::string_view path)
{
    if (path.front() != '/')
        return fmt::format("{} is not an absolute path; begin it with /", shown(path));
    for (const std::string_view part : {"//", "/./", "/../"}) {
        if (path.find(part) != std::string_view::npos)
            return fmt::format("{} would match nothing, as paths are resolved; leave {} out", shown(path),
                               shown(part.substr(1)));
    }
    return std::nullopt;
}

std::optional<std::string> wrong_directory(std::string_view path)
{
    if (path == "/")
        return "the root directory cannot be listed (nothing below it would match); list its directories";
    if (path.front() == '/' && path.back() == '/')
        return fmt::format("{} ends in / and would match nothing; leave the / out", shown(path));
    if (path.ends_with("/.") || path.ends_with("/.."))
        return fmt::format("{} would match nothing, as paths are resolved; leave the dots out", shown(path));
    return wrong_start(path);
}

} // namespace source
