#include "policy/text_source.h"

#include <string>
#include <utility>
#include <vector>

#include "tests/policy/policy_fixture.h"

namespace {

using lines = std::vector<std::string>;

class text_file : public policy_fixture {
protected:
    lines read(const std::string& content, std::size_t longest = text_source::piece)
    {
        machine_.plain("workdir", content);
        text_source text("/etc/sorvanic/workdir");
        EXPECT_TRUE(text.is_open());
        lines found;
        while (const char* line = text.next_line(longest))
            found.push_back(line);
        return found;
    }
};

TEST_F(text_file, gives_the_lines_that_count)
{
    using namespace std::string_literals;
    const std::pair<std::string, lines> cases[] = {
        {"", {}},
        {"\n\n", {}},
        {"a\nb\n", {"a", "b"}},
        {"a\nlast", {"a", "last"}},
        {"# a\n#\nb\n #c\n", {"b", " #c"}},
        {"a\r\n", {"a\r"}},
        {"ab\0cd\nef\n"s, {"ab", "ef"}},
        {"\0ab\ncd\n"s, {"cd"}},
    };
    for (const auto& [content, expected] : cases)
        EXPECT_EQ(read(content), expected) << content;
}

TEST_F(text_file, the_tail_of_a_long_line_is_a_line_of_its_own)
{
    const std::string longest(1022, 'x');
    EXPECT_EQ(read(longest + "\ny\n"), (lines{longest, "y"}));
    EXPECT_EQ(read(longest + "tail\ny\n"), (lines{longest, "tail", "y"}));
    EXPECT_EQ(read("#" + longest + "\ny\n"), (lines{"x", "y"}));
    EXPECT_EQ(read("#" + longest.substr(1) + "#no\ny\n"), (lines{"y"}));
    EXPECT_EQ(read(longest + "tail\ny\n", 511), (lines{"tail", "y"}));
    EXPECT_EQ(read(std::string(511, 'a') + "\n" + std::string(512, 'b') + "\n", 511),
              (lines{std::string(511, 'a')}));
}

} // namespace
