#include "host/text.h"

#include <gtest/gtest.h>

#include <string_view>

namespace {

using namespace std::string_view_literals;

TEST(visible_text, lets_no_control_reach_a_terminal_and_leaves_letters_alone)
{
    const struct {
        std::string_view text;
        std::string_view shown;
    } cases[] = {
        {"/srv/www/index.html", "/srv/www/index.html"},
        {"a\\b", "a\\\\b"},
        {"one\ntwo\x1b[2J\x7f\0"sv, "one\\x0Atwo\\x1B[2J\\x7F\\x00"},
        {"grün, 名前, 😀", "grün, 名前, 😀"},
        {"\x9b"
         "31m",
         "\\x9B31m"}, // a C1 control in one byte
        {"\xc2\x9b"
         "31m",
         "\\xC2\\x9B31m"},          // the same as UTF-8
        {"\xc2\xa0", "\xc2\xa0"},   // the first character that is no control
        {"caf\xe9", "caf\\xE9"},    // Latin-1
        {"\xc0\xaf", "\\xC0\\xAF"}, // overlong
        {"\xe0\x80\xaf", "\\xE0\\x80\\xAF"},
        {"\xed\xa0\x80", "\\xED\\xA0\\x80"}, // a surrogate
        {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
        {"cut \xf0\x9f\x98", "cut \\xF0\\x9F\\x98"},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(host::visible(text), shown);
}

} // namespace
