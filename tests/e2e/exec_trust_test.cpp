#include <unistd.h>

#include <fstream>

#include <fmt/format.h>

#include "tests/e2e/session_fixture.h"

// Programs of which no digest can tell what will run, and a supervisor that is short of descriptors.

namespace e2e {

namespace {

using exec_trust = session_test;

std::string fill(const char* format, int tries)
{
    char text[100];
    std::snprintf(text, sizeof text, format, tries);
    return text;
}

TEST_F(exec_trust, runs_nameless_memory_only_when_it_is_sealed)
{
    constexpr int tries = 1000;
    const fs::path runner = victim("run_memory");
    const fs::path program = listed("program", read_file(victim("log_program")) + "g");
    const fs::path log = directory() / "log";
    for (const uid_t user : users()) {
        SCOPED_TRACE(user);
        outcome result = run_session({runner, program, log, std::to_string(tries)}, {"--quiet"}, user);
        EXPECT_EQ(result.out, fill("done 0 refused %d\n", tries)) << result.err;
        EXPECT_FALSE(fs::exists(log));
        result = run_session({runner, program, log, "3", "sealed"}, {}, user);
        EXPECT_EQ(result.out, "done 3 refused 0\n") << result.err;
        fs::remove(log);
    }
    status = "2";
    EXPECT_EQ(run_session({runner, program, log, "3"}).out, "done 3 refused 0\n");
}

TEST_F(exec_trust, refuses_a_program_above_the_limit_at_once)
{
    const fs::path start = victim("start_program");
    const fs::path program = victim("exit_with");
    const fs::path large = unlisted("large", read_file(program));
    fs::resize_file(large, std::uintmax_t{200} << 30); // sparse
    EXPECT_EQ(run_session({start, "fork", large, "3"}).out, "error 1\n");
    const auto size = fs::file_size(program);
    EXPECT_EQ(run_session({start, "fork", program, "3"}, {"--largest-program", std::to_string(size - 1)}).out,
              "");
    EXPECT_EQ(run_session({program, "3"}, {"--largest-program", std::to_string(size)}).status, 3);
}

// Listed by its content, it runs wherever it is; no rule about paths can say anything of it.
TEST_F(exec_trust, judges_what_has_too_long_a_path_by_its_content)
{
    const fs::path python = of_machine("python3");
    const fs::path program = victim("exit_with");
    const fs::path bad = unlisted("unlisted", read_file(program) + "x");
    // The tree is made outside, where nothing is refused.
    const fs::path deep = directory() / "deep";
    const std::string make = R"(
import os, shutil, sys
deep, good, bad = sys.argv[1:]
os.mkdir(deep)
os.chdir(deep)
for i in range(21):
    os.mkdir('d' * 200)
    os.chdir('d' * 200)
shutil.copy(good, 'good')
shutil.copy(bad, 'bad')
open('file', 'w').write('x')
)";
    ASSERT_EQ(child_process({python, "-c", make, deep, program, bad}, directory()).wait().status, 0);
    // A directory without a path cannot be entered inside, but a session may begin there.
    const std::string enter = R"(
import os, sys
os.chdir(sys.argv[1])
for i in range(21): os.chdir('d' * 200)
os.execv(sys.argv[2], sys.argv[2:])
)";
    const std::string inside = R"(
import os, subprocess, sys
def tell(name, what):
    try: print(name, what())
    except OSError as e: print(name, 'error', e.errno)
tell('good', lambda: subprocess.call(['./good', '3']))
tell('bad', lambda: subprocess.call(['./bad', '3']))
tell('file', lambda: open('file').read())
tell('new', lambda: open('new', 'w'))
tell('.', lambda: os.chdir('.'))
)";
    for (const uid_t user : users()) {
        SCOPED_TRACE(user);
        fs::remove_all(directory() / "state");
        command line = {python, "-c", enter, deep};
        const command run = session({python, "-I", "-c", inside}); // it shall not look for modules there
        line.insert(line.end(), run.begin(), run.end());
        const outcome result = child_process(line, directory(), user).wait();
        EXPECT_EQ(result.out, "good 3\nbad error 1\nfile error 1\nnew error 1\n. error 1\n") << result.err;
    }
    child_process({"/bin/rm", "-rf", deep}, directory()).wait();
}

// Short of descriptors, the supervisor cannot look at its callers; that is no reason to let them go on.
TEST_F(exec_trust, refuses_what_it_is_too_short_of_descriptors_to_judge)
{
    const fs::path python = of_machine("python3");
    const fs::path black = victim("exit_with");
    blacklist(black);
    const std::string script = R"(
import os, sys, time
go, ready, black, refused = sys.argv[1:]
open(ready, 'w').close()
while not os.path.exists(go): time.sleep(0.01)
for i in range(100):
    try: print('read', os.read(os.open(refused, os.O_RDONLY), 1))
    except OSError as e: pass
    child = os.fork()
    if child == 0:
        try: os.execv(black, [black, '3'])
        except OSError: os._exit(0)
    status = os.waitpid(child, 0)[1]
    if status == 3 << 8: print('ran')
print('end')
)";
    std::ofstream(policy() / "refused") << "x";
    fs::permissions(policy() / "refused", fs::perms(0666));
    for (const uid_t user : users()) {
        for (const int descriptors : {6, 8, 9, 10, 11, 12, 14, 20}) {
            SCOPED_TRACE(std::to_string(user) + " with " + std::to_string(descriptors));
            for (const char* left : {"ready", "state", "go"})
                fs::remove_all(directory() / left);
            child_process run(session({python, "-c", script, directory() / "go", directory() / "ready", black,
                                       policy() / "refused"},
                                      {"--quiet"}),
                              directory(), user);
            ASSERT_TRUE(eventually([&] { return fs::exists(directory() / "ready"); }));
            // Another user's limits are not for every root to set.
            const command limit = {"/usr/bin/prlimit", fmt::format("--pid={}", run.pid()),
                                   fmt::format("--nofile={0}:{0}", descriptors)};
            const outcome limited = child_process(limit, directory(), user).wait();
            ASSERT_EQ(limited.status, 0) << limited.err;
            std::ofstream(directory() / "go") << "go";
            const outcome result = run.wait(20s);
            EXPECT_EQ(result.out.find("read"), std::string::npos) << result.out << result.err;
            EXPECT_EQ(result.out.find("ran"), std::string::npos) << result.out << result.err;
        }
    }
}

} // namespace

} // namespace e2e
