#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>

#include "tests/e2e/session_fixture.h"

// Names that come to mean another file while they are decided; signals that come in between.

namespace e2e {

namespace {

using file_race = session_test;

// The policy directory is closed to every program but the product's own.
TEST_F(file_race, a_file_is_exchanged_for_a_forbidden_one)
{
    const fs::path racer = victim("race_file");
    const fs::path place = directory() / "policz"; // as long as the other name
    fs::create_directory(place);
    fs::permissions(place, fs::perms::all);
    for (const fs::path& one : {place, policy()}) {
        std::ofstream(one / "file") << "x";
        fs::permissions(one, fs::perms::all);
        fs::permissions(one / "file", fs::perms(0666));
    }
    for (const std::string what : {"memory", "link", "directory", "unlink", "rename"}) {
        for (const uid_t user : users()) {
            SCOPED_TRACE(what + " as " + std::to_string(user));
            int through = 0;
            int refused = 0;
            for (int attempt = 0; attempt < 20 && (through == 0 || refused == 0); ++attempt) {
                const outcome result = run_session({racer, what, place, policy(), "2000"}, {}, user);
                int passed = 0;
                int stopped = 0;
                int reached = 0;
                ASSERT_EQ(std::sscanf(result.out.c_str(), "through %d refused %d reached %d", &passed,
                                      &stopped, &reached),
                          3)
                    << result.out << result.err;
                EXPECT_EQ(reached, 0);
                through += passed;
                refused += stopped;
            }
            EXPECT_GT(through, 0);
            EXPECT_GT(refused, 0);
            std::error_code error;
            fs::remove(place / "by", error);
            fs::remove(place / "file", error);
            std::ofstream(place / "file") << "x";
            fs::permissions(place / "file", fs::perms(0666));
        }
    }
}

TEST_F(file_race, what_is_closed_opens_under_another_name)
{
    const fs::path python = of_machine("python3");
    std::ofstream(policy() / "file") << "x";
    fs::permissions(policy() / "file", fs::perms(0666));
    const std::string script = R"(
import os, sys
policy, state = sys.argv[1:]
keeper = '/proc/%d/' % os.getppid()
os.symlink(policy + '/file', os.path.dirname(policy) + '/link')
names = [policy + '/file', policy + '/../policy/./file', os.path.dirname(policy) + '/link',
         '/proc/self/root' + policy + '/file', '/proc/thread-self/root' + policy + '/file',
         '/proc/%d/root' % os.getpid() + policy + '/file', policy + '/none',
         state + '/kernel.log', state + '/log', '/proc/self/root' + state + '/kernel.log',
         keeper + 'mem', keeper + 'environ', keeper + 'fd', keeper + 'root' + policy + '/file']
for name in names:
    for flags in os.O_RDONLY, os.O_WRONLY, os.O_RDWR | os.O_CREAT:
        try:
            print('reached', os.open(name, flags), name)
        except OSError as error:
            if error.errno not in (1, 2, 13, 20, 21):
                print(error)
print('tried', len(names))
)";
    for (const uid_t user : users()) {
        fs::remove(directory() / "link");
        const outcome told = run_session({python, "-c", script, policy(), directory() / "state"}, {}, user);
        EXPECT_EQ(told.out, "tried 14\n") << told.err;
    }
}

} // namespace

} // namespace e2e
