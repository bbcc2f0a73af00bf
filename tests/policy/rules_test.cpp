#include <string>

#include "policy/dacctl.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "tests/policy/policy_fixture.h"

namespace {

class rules : public policy_fixture {
protected:
    void load(const std::string& lines)
    {
        for (const char* file : {"dac", "priv", "appevp"})
            machine_.encoded(file, lines);
        sorvanic_kernel_dacctl_module.reload();
        sorvanic_kernel_privctl_module.reload();
        sorvanic_kernel_pracctl_module.reload();
    }
};

TEST_F(rules, the_first_rule_that_applies_decides)
{
    const std::string editor = "/srv:/usr/bin/editor:6\n";
    // A question to each of the three tables, whose files all have these lines. A user rule is
    // asked for the user, a program rule for the program of that name.
    const struct {
        std::string lines, path, who;
        kernel::u32 mask;
        int dac, priv, program;
    } cases[] = {
        {"/d:alice:4\n", "/d/f", "alice", 4, 0, 0, 0},
        {"/d:alice:4\n", "/D", "ALICE", 4, 0, 0, 0},
        {"/d:alice:4\n", "/d/f", "alice", 6, 2, 2, 3}, // a privilege answers with the bits it lacks
        {"/d:alice:4\n", "/d/f", "alice", 0x306, 2, 0x302, 3},
        {"/d:alice:4\n", "/d/f", "alice", 1, 2, 1, 3}, // as if there were no rule
        {"/d:alice:4\n", "/d/f", "alice", 0, 0, 0, 0},
        {"/d:alice:4\n", "/d/f", "alic", 4, 1, 1, 2},
        {"/d:alice:4\n", "/d/f", "alice2", 4, 1, 1, 2},
        {"/d:alice:4\n", "/other", "alice", 4, 1, 1, 1},
        {"/opt/app:alice:5\n", "/opt/application", "alice", 4, 1, 0, 1}, // only privileges end anywhere
        {"/opt/app:alice:5\n", "/opt/app.conf", "alice", 3, 1, 2, 1},
        {"/d:alice:4\n/d/x:alice:6\n", "/d/x/f", "alice", 2, 2, 2, 3},
        {"/d:bob:4\n/d:alice:6\n", "/d/x", "alice", 2, 0, 0, 0}, // another's rule does not end the walk
        {"/d:alice:6\n/d:bob:4\n", "/d/x", "carol", 2, 1, 1, 2},
        {":alice:6\n", "/any/where", "alice", 2, 0, 0, 0}, // an empty path is above everything
        {editor + "/srv:*:4\n", "/srv/f", "editor", 2, 1, 1, 0},
        {editor + "/srv:*:4\n", "/srv/f", "viewer", 2, 1, 1, 3},
        {editor + "/srv:*:4\n", "/srv/f", "viewer", 4, 1, 1, 0},
        {"/srv:*:4\n" + editor, "/srv/f", "editor", 2, 1, 1, 3},
        {editor, "/srv/f", "viewer", 4, 1, 1, 2},
        {editor, "/other", "editor", 4, 1, 1, 1},
        {editor, "/srv/f", "/usr/bin/editor", 4, 0, 0, 2}, // users have whole names
        {"/srv:/bin/*:4\n", "/srv/f", "viewer", 4, 1, 1, 0},
        {"/srv:/bin/v*:4\n", "/srv/f", "viewer", 4, 1, 1, 2},
        {"/srv:/bin/:4\n", "/srv/f", "", 4, 1, 1, 0},
    };
    for (const auto& c : cases) {
        load(c.lines);
        SCOPED_TRACE(c.lines + c.path + " " + c.who + " " + std::to_string(c.mask));
        EXPECT_EQ(sorvanic_kernel_dacctl_module.match(c.who.c_str(), c.path.c_str(), c.mask), c.dac);
        EXPECT_EQ(sorvanic_kernel_privctl_module.match(c.who.c_str(), c.path.c_str(), c.mask), c.priv);
        EXPECT_EQ(sorvanic_kernel_pracctl_module.match(c.path.c_str(), c.who.c_str(), c.mask), c.program);
    }
}

TEST_F(rules, a_line_is_taken_whole_or_skipped)
{
    const std::string name(31, 'u');
    const auto of_size = [](std::size_t size) {
        const std::string rest = ":u:7";
        return "/" + std::string(size - 1 - rest.size(), 'p') + rest;
    };
    const struct {
        std::string line, path, who;
        std::string user_rule, program_rule; // "-": skipped; else those of the lowest bits it grants
    } cases[] = {
        {"/d:u:6", "/d", "u", "6", "6"},
        {"/d:u:4294967302", "/d", "u", "6", "6"}, // modulo 2^32
        {"/d:u:4294967296", "/d", "u", "0", "0"},
        {"/d:u:2147483647", "/d", "u", "7", "7"},
        {"/d:u:2147483648", "/d", "u", "-", "-"},
        {"/d:u:x", "/d", "u", "0", "0"},
        {"/d:u:", "/d", "u", "0", "0"}, // empty is 0, missing is no rule
        {"/d:u", "/d", "u", "-", "-"},
        {"/d", "/d", "u", "-", "-"},
        {"/d:u:5:6", "/d", "u", "5", "5"},
        {"/d:u:5 6", "/d", "u", "5", "5"},
        {"/d:u: 5", "/d", "u", "0", "0"},
        {"#/d:u:6", "#/d", "u", "-", "-"},
        {"/d:" + name + "more:6", "/d", name, "6", "-"},
        {"/d:" + name + "more:6", "/d", name + "more", "-", "6"},
        {of_size(511), of_size(511).substr(0, 507), "u", "7", "7"},
        {of_size(512), of_size(512).substr(0, 508), "u", "-", "7"},
        {of_size(515), of_size(515).substr(0, 511), "u", "-", "7"},
        {of_size(516), of_size(516).substr(0, 512), "u", "-", "-"},
        {"/d:" + std::string(511, 'p') + ":7", "/d", std::string(511, 'p'), "-", "7"},
        {"/d:" + std::string(512, 'p') + ":7", "/d", std::string(512, 'p'), "-", "-"},
    };
    for (const auto& c : cases) {
        load(c.line + "\n");
        const char* path = c.path.c_str();
        const char* who = c.who.c_str();
        std::string granted[3] = {"-", "-", "-"};
        for (const kernel::u32 bits : {0u, 1u, 2u, 4u, 3u, 5u, 6u, 7u}) {
            const int results[] = {sorvanic_kernel_dacctl_module.match(who, path, bits),
                                   sorvanic_kernel_privctl_module.match(who, path, bits),
                                   sorvanic_kernel_pracctl_module.match(path, who, bits)};
            for (std::size_t table = 0; table < 3; ++table)
                if (results[table] == 0)
                    granted[table] = std::to_string(bits);
        }
        EXPECT_EQ(granted[0], c.user_rule) << c.line;
        EXPECT_EQ(granted[1], c.user_rule) << c.line;
        EXPECT_EQ(granted[2], c.program_rule) << c.line;
    }
}

} // namespace
