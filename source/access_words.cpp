#include "source/access_words.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "source/line_text.h"
#include "source/nearest.h"

namespace source {

namespace {

const access_word* find_word(std::string_view name)
{
    const auto* const word = std::ranges::find(access_words, name, &access_word::word);
    return word == std::end(access_words) ? nullptr : word;
}

void tell_unknown(const word& wrong, findings& found)
{
    if (wrong.value == "rename")
        return found.error(wrong.at,
                           "nothing is renamed in a controlled directory, whatever a rule says; have "
                           "the program write in place, or take the directory out of [[files]]");
    std::vector<std::string_view> names;
    std::ranges::transform(access_words, std::back_inserter(names), &access_word::word);
    found.error(wrong.at,
                fmt::format("{} is no access{}", shown(wrong.value), suggestion(wrong.value, names)));
}

} // namespace

std::uint32_t mask_of(const word& whose, std::span<const word> words, findings& found)
{
    std::uint32_t mask = 0;
    const auto has = [&](std::string_view name) {
        return std::ranges::any_of(words,
                                   [&](const word& one) { return one.value == name || one.value == "edit"; });
    };
    if (words.empty())
        found.error(whose.at,
                    fmt::format("no access for {}; write \"none\" to refuse everything", shown(whose.value)));
    for (const word& one : words) {
        const access_word* known = find_word(one.value);
        if (known == nullptr) {
            tell_unknown(one, found);
            continue;
        }
        if (known->bits == 0 && words.size() > 1)
            found.error(one.at, "\"none\" stands alone; leave it or the other words out");
        if (!known->needs.empty() && !has(known->needs))
            found.error(one.at, fmt::format("\"{}\" would also grant \"{}\": {}; add \"{}\" if that is meant",
                                            one.value, known->needs, known->because, known->needs));
        mask |= known->bits;
    }
    constexpr std::uint32_t changes_directories = write_bit | execute_bit;
    if ((mask & changes_directories) == changes_directories && !has("create") && !has("delete"))
        found.error(whose.at,
                    "\"execute\" and \"write\" together would also grant \"create\": it asks for these two "
                    "bits of the directory; add \"create\" if that is meant");
    return mask;
}

std::string words_of(std::uint32_t mask)
{
    constexpr std::pair<std::uint32_t, std::string_view> known[] = {
        {0, "none"},
        {read_bit, "read"},
        {read_bit | execute_bit, "read, execute"},
        {read_bit | write_bit | append_bit, "read, write"},
        {read_bit | write_bit | append_bit | execute_bit, "read, write, create"},
        {read_bit | write_bit | append_bit | execute_bit | delete_bit, "edit"},
    };
    for (const auto& [bits, words] : known)
        if (bits == mask)
            return std::string(words);
    return std::to_string(mask);
}

} // namespace source
