#include "source/access_words.h"

#include <algorithm>
#include <iterator>
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
    return mask;
}

std::string words_of(std::uint32_t mask)
{
    if (mask == find_word("edit")->bits)
        return "edit";
    std::vector<std::string_view> names;
    std::uint32_t made = 0;
    for (const std::string_view name : {"read", "execute", "write", "create"}) {
        const access_word& known = *find_word(name);
        if ((known.bits & ~mask) == 0 && (known.bits & ~made) != 0) {
            // What can be created can be executed: the word for less says nothing more then.
            if (name == "create")
                std::erase(names, "execute");
            names.push_back(name);
            made |= known.bits;
        }
    }
    if (made != mask)
        return std::to_string(mask);
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

} // namespace source
