#include "policy/uactivate.h"

#include <string>

#include "tests/policy/policy_fixture.h"

namespace {

class uactivate : public policy_fixture {
protected:
    int load(const std::string& content)
    {
        machine_.encoded("platuser", content);
        return sorvanic_kernel_uactivate_module.reload();
    }
    /// The state as a digit, or "-" for a user who is not listed.
    static std::string state(const std::string& name)
    {
        const int found = support::state_of(name);
        return found < 0 ? "-" : std::to_string(found);
    }
    static int update(const std::string& name, kernel::u32 to)
    {
        return sorvanic_kernel_uactivate_module.update(name.c_str(), to);
    }
};

TEST_F(uactivate, a_user_is_known_by_the_whole_name)
{
    using namespace std::string_literals;
    const std::string long_name = "a-user-name-of-31-characters---";
    ASSERT_EQ(long_name.size(), 31u);
    ASSERT_EQ(load("# users\n\nalice\nbob:x:y\n" + long_name + "cut\n d\n" + std::string(512, 'e') + "\n"),
              0);
    EXPECT_EQ(entries(), 4u + 1) << "and an index";
    // Of a longer name 31 characters are kept, and compared with all that is asked for.
    for (const std::string& name : {"alice"s, "ALICE"s, "bob"s, long_name, " d"s})
        EXPECT_EQ(state(name), "2") << name;
    for (const std::string& name :
         {"alic"s, "alice2"s, "bob:x"s, "carol"s, ""s, long_name + "cut", "d"s, "# users"s})
        EXPECT_EQ(state(name), "-") << name;
    EXPECT_EQ(update("carol", 0), 1);
    EXPECT_EQ(state("carol"), "-");
}

TEST_F(uactivate, states_survive_a_reload_and_nothing_else_does)
{
    const std::string long_name(40, 'n');
    const std::string kept = long_name.substr(0, 31);
    load("alice\nbob\n" + long_name + "\n");
    EXPECT_EQ(update("Alice", 0), 0);
    EXPECT_EQ(update("bob", 1), 0);
    EXPECT_EQ(update(kept, 0), 0);
    EXPECT_EQ(state("alice") + state("bob") + state(kept), "010");

    load("carol\n" + long_name + "\nALICE:again\n");
    EXPECT_EQ(state("carol") + state("alice") + state(kept), "200");
    EXPECT_EQ(state("bob"), "-");
    load("bob\nalice\n");
    EXPECT_EQ(state("bob") + state("alice"), "20") << "who was gone begins again";
}

TEST_F(uactivate, takes_states_over_when_it_loads)
{
    load("alice\n");
    update("alice", 0);
    sorvanic_kernel_uactivate_module.unload();
    sorvanic_kernel_uactivate_module.load();
    update("alice", 1);
    EXPECT_EQ(state("alice"), "1");
    sorvanic_kernel_uactivate_module.sync();
    EXPECT_EQ(state("alice"), "0");
}

TEST_F(uactivate, of_two_lines_with_one_name_the_first_counts)
{
    load("alice\nALICE\n");
    update("alice", 1);
    EXPECT_EQ(state("alice"), "1");
    load("alice\nALICE\n");
    EXPECT_EQ(state("alice"), "1");
}

TEST_F(uactivate, drops_only_the_line_that_has_no_memory)
{
    std::string content;
    for (int n = 1; n <= 8200; ++n)
        content += "u" + std::to_string(n) + "\n";
    load(content); // from here on there is a work file
    EXPECT_EQ(state("u8200"), "2") << "there is no limit";

    machine_.encoded("platuser", "a\nb\nc\n");
    const char* const expected[] = {"222", "---", "---", "---", "-22", "2-2", "22-", "222"};
    fail_each_call(fault::allocation, sorvanic_kernel_uactivate_module.reload, [&](std::size_t n) {
        ASSERT_LT(n, std::size(expected));
        EXPECT_EQ(state("a") + state("b") + state("c"), expected[n]);
    });
}

} // namespace
