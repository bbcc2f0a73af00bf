#include "source/finding.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "host/text.h"

namespace source {

namespace {

constexpr std::size_t widest_line = 160;

std::string_view name_of(severity level)
{
    switch (level) {
    case severity::note:
        return "note: ";
    case severity::warning:
        return "warning: ";
    case severity::error:
        return "";
    }
    return "";
}

/// The line, and a caret below the column. Tabs stay tabs in both, so that the caret stands right.
std::string excerpt(const place& at)
{
    const std::string_view line = std::string_view(at.text).substr(0, widest_line);
    std::string shown;
    std::string below;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::string piece = line[i] == '\t' ? "\t" : host::visible(line.substr(i, 1));
        const bool is_ascii = static_cast<unsigned char>(line[i]) < 0x80;
        shown += is_ascii ? piece : std::string(1, line[i]);
        if (i + 1 < at.column)
            below += line[i] == '\t' ? "\t" : std::string(is_ascii ? piece.size() : 1, ' ');
    }
    const std::string number = std::to_string(at.line);
    std::string text = fmt::format("  {} | {}\n", number, shown);
    if (at.column > 0 && at.column <= line.size() + 1)
        text += fmt::format("  {:{}} | {}^\n", "", number.size(), below);
    return text;
}

} // namespace

void findings::add(severity level, place at, std::string text)
{
    const auto same = [&](const finding& one) {
        return one.level == level && one.at.file == at.file && one.at.line == at.line &&
               one.at.column == at.column && one.text == text;
    };
    if (all_.empty() || !same(all_.back()))
        all_.push_back({level, std::move(at), std::move(text)});
}

std::size_t findings::count(severity level) const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(all_, [&](const finding& one) { return one.level == level; }));
}

std::string summary(const finding& one)
{
    std::string where = host::visible(one.at.file);
    if (one.at.line > 0)
        where += fmt::format(":{}", one.at.line);
    if (one.at.line > 0 && one.at.column > 0)
        where += fmt::format(":{}", one.at.column);
    return fmt::format("{}: {}{}", where, name_of(one.level), one.text);
}

std::string rendered(const finding& one)
{
    std::string text = summary(one) + "\n";
    if (!one.at.text.empty())
        text += excerpt(one.at);
    return text;
}

} // namespace source
