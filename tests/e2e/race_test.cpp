#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "tests/e2e/session_fixture.h"

// Names and files that come to mean something else while they are decided.

namespace e2e {

namespace {

struct race : session_test {
    race() : racer(victim("race"))
    {
        for (const char* name : {"good/deep", "evil/deep"})
            fs::create_directories(directory() / name);
        fs::permissions(directory() / "good/deep", fs::perms::all);
    }

    /// Races until it has been let through and stopped both, and expects that it never reached the other
    /// file; returns how often it was let through.
    int run(const std::string& act, const std::string& how, const fs::path& one, const fs::path& other,
            int rounds, uid_t user, const command& before = {})
    {
        command line = before;
        line.insert(line.end(), {racer, act, how, one, other, std::to_string(rounds), directory() / "log"});
        int through = 0;
        int stopped = 0;
        // Who is faster is the scheduler's choice: on a busy machine one side may win all rounds.
        for (int attempt = 0; attempt < 20 && (through == 0 || stopped == 0); ++attempt) {
            const outcome result = run_session(line, {}, user);
            int counts[3] = {0, 0, 1};
            std::sscanf(result.out.c_str(), "through %d refused %d reached %d", &counts[0], &counts[1],
                        &counts[2]);
            through += counts[0];
            stopped += counts[1];
            EXPECT_EQ(counts[2], 0) << result.out << result.err;
            // It ended in the middle of an exchange.
            const std::string above = one.parent_path().parent_path();
            if (fs::is_symlink(above)) {
                fs::remove(above);
                fs::rename(above + ".link", above);
            }
            for (const char* left : {".link", ".by", ".by.fresh", ".to"})
                fs::remove(above + left);
        }
        EXPECT_GT(through, 0);
        EXPECT_GT(stopped, 0);
        return through;
    }

    /// Runs what is at good/deep/p in races with evil/deep/p. Both append a letter to a log.
    void expect_no_winner(const std::string& act, const std::string& how, int rounds, uid_t user,
                          const command& before = {})
    {
        SCOPED_TRACE(act + " " + how + " as " + std::to_string(user));
        std::string expected;
        const int ran =
            run(act, how, directory() / "good/deep/p", directory() / "evil/deep/p", rounds, user, before);
        for (int i = 0; i < ran; ++i)
            expected += "g\n";
        EXPECT_EQ(read_file(directory() / "log"), expected);
        fs::remove(directory() / "log");
    }

    void expect_no_winners(const command& hows, int rounds)
    {
        for (const std::string& how : hows) {
            for (const uid_t user : users())
                expect_no_winner("fork", how, rounds, user);
        }
    }

    /// Two programs that differ in their last letters, the second one on no list.
    void list_programs()
    {
        const std::string program = read_file(victim("log_program"));
        // Whom a file does not belong to may link to it when he may change it.
        for (const fs::path& file :
             {listed("good/deep/p", program + "g"), unlisted("evil/deep/p", program + "e")})
            fs::permissions(file, fs::perms::all);
    }

    const fs::path racer;
};

TEST_F(race, decides_the_program_that_runs)
{
    list_programs();
    expect_no_winners({"memory", "link", "directory"}, 500);
}

TEST_F(race, decides_the_program_that_runs_after_vfork_in_a_thread_or_in_place)
{
    list_programs();
    blacklist(directory() / "evil/deep/p"); // under whatever name
    const std::pair<const char*, const char*> ways[] = {{"vfork", "memory"},   {"vfork", "link"},
                                                        {"thread", "memory"},  {"thread", "link"},
                                                        {"fork", "hard-link"}, {"fork", "written"}};
    for (const uid_t user : users()) {
        for (const auto& [act, how] : ways)
            expect_no_winner(act, how, 500, user);
    }
}

TEST_F(race, decides_the_script_that_runs)
{
    const std::string shell = of_machine("sh");
    listed("good/deep/p", "#!" + shell + "\necho g >> $1\n");
    unlisted("evil/deep/p", "#!" + shell + "\necho e >> $1\n");
    expect_no_winners({"memory", "link", "directory"}, 300);
    // The supervisor's rights are not the tree's.
    if (geteuid() == 0)
        expect_no_winner("fork", "link", 150, 0, as_nobody({}));
}

TEST_F(race, decides_the_script_behind_another_program)
{
    const std::string shell = of_machine("sh");
    const std::string env = of_machine("env");
    const std::string program = read_file(victim("log_program")) + "g";
    const fs::path payload = unlisted("payload", "echo e >> $2\n");
    const struct {
        std::string good;
        std::string evil;
    } pairs[] = {
        {"#!" + env + " sh\necho g >> $1\n", "#!" + env + " sh\necho e >> $1\n"},
        // The same interpreter gets another file.
        {"#!" + shell + "\necho g >> $1\n", "#!" + shell + " " + payload.string() + "\n"},
        {program, "#!" + shell + "\necho e >> $1\n"},
    };
    for (const auto& [good, evil] : pairs) {
        listed("good/deep/p", good);
        unlisted("evil/deep/p", evil);
        expect_no_winners({"memory", "link"}, 100);
    }
    // Should it run, "p" would take the script for its log.
    const fs::path good = listed("good/deep/p", program);
    const std::string content = "#!" + good.string() + "\n";
    const fs::path evil = unlisted("evil/deep/p", content);
    fs::permissions(evil, fs::perms::all);
    for (const uid_t user : users())
        expect_no_winner("fork", "memory", 150, user);
    EXPECT_EQ(read_file(evil), content);
}

// Stores through a mapping that was there before leave the file's times as they are.
TEST_F(race, kills_a_program_overwritten_while_it_is_digested)
{
    constexpr std::size_t long_digested = 60'000'000;
    const fs::path other = unlisted("other", read_file(victim("log_program")));
    std::string content = read_file(victim("exit_with"));
    content.resize(long_digested);
    const fs::path changer = victim("change_mapped");
    for (const uid_t user : users()) {
        const std::string name = "program-" + std::to_string(user);
        const fs::path program = listed(name, content);
        const fs::path log = directory() / ("log-" + std::to_string(user));
        ASSERT_TRUE(user == 0 || chown(program.c_str(), user, user) == 0);
        const outcome result = run_session({changer, program, other, log}, {}, user);
        EXPECT_EQ(read_file(log), "");
        EXPECT_EQ(result.status, 128 + SIGKILL) << result.err;
    }
}

// The policy directory is closed to every program but the product's own.
TEST_F(race, a_closed_file_stays_closed)
{
    const fs::path place = directory() / "policz"; // as long as the other name
    for (const fs::path& each : {place / "deep", policy() / "deep"}) {
        fs::create_directories(each);
        std::ofstream(each / "file") << "x";
        for (const fs::path& opened : {each.parent_path(), each})
            fs::permissions(opened, fs::perms::all);
        fs::permissions(each / "file", fs::perms(0666));
    }
    for (const std::string act : {"open", "unlink", "rename"}) {
        for (const std::string how : {"memory", "link", "parent", "directory"}) {
            // A last link is removed and renamed itself.
            if (how == "link" && act != "open")
                continue;
            for (const uid_t user : users()) {
                SCOPED_TRACE(act + " " + how + " as " + std::to_string(user));
                run(act, how, place / "deep/file", policy() / "deep/file", 2000, user);
                EXPECT_EQ(std::distance(fs::directory_iterator(policy() / "deep"), {}), 1);
                EXPECT_EQ(read_file(policy() / "deep/file"), "x");
                fs::remove(place / "deep/file");
                std::ofstream(place / "deep/file") << "x";
                fs::permissions(place / "deep/file", fs::perms(0666));
            }
        }
    }
}

TEST_F(race, a_closed_file_stays_closed_under_every_name)
{
    const fs::path python = of_machine("python3");
    std::ofstream(policy() / "file") << "x";
    fs::permissions(policy() / "file", fs::perms(0666));
    const std::string script = R"(
import os, sys
policy, state = sys.argv[1:]
above = os.path.dirname(policy)
keeper = '/proc/%d/' % os.getppid()
os.symlink(policy + '/file', above + '/link')
holder = '/proc/self/fd/%d' % os.open(above, os.O_RDONLY)
os.set_inheritable(int(os.path.basename(holder)), True)
child = os.fork()
if child == 0:
    os.execv('/bin/sleep', ['sleep', '100'])
try:
    os.link(state + '/kernel.log', above + '/hard')
    print('linked')
except OSError as error:
    print('link', error.errno)
names = [policy + '/file', policy + '/../policy/./file', above + '/link', policy + '/none',
         '/proc/self/root' + policy + '/file', '/proc/thread-self/root' + policy + '/file',
         '/proc/%d/root' % os.getpid() + policy + '/file', '/proc/%d/root' % child + policy + '/file',
         holder + '/policy/file', holder.replace('self', str(child)) + '/policy/file',
         state + '/kernel.log', state + '/log', '/proc/self/root' + state + '/kernel.log',
         above + '/4' + keeper[5:] + 'mem', keeper + 'mem', keeper + 'environ', keeper + 'fd', keeper + 'fd/3', keeper + 'root' + policy + '/file']
reached = set()
for name in 100 * names:
    for flags in os.O_RDONLY, os.O_WRONLY, os.O_RDWR | os.O_CREAT:
        try:
            os.close(os.open(name, flags))
            reached.add(name)
        except OSError as error:
            if error.errno not in (1, 2, 13, 20, 21):
                print(error)
print('tried', len(names), *reached)
os.kill(child, 9)
)";
    of_machine("sleep");
    for (const uid_t user : users()) {
        fs::remove(directory() / "link");
        fs::remove_all(directory() / "state");
        command run = session({python, "-c", script, policy(), directory() / "state"});
        // Proc once more, below another number.
        fs::create_directories(directory() / "4");
        const std::string mount = "mount --bind /proc '" + (directory() / "4").string() + "'; exec \"$@\"";
        if (user == 0 && std::system("unshare -m true 2>/dev/null") == 0)
            run.insert(run.begin(), {"/usr/bin/unshare", "-m", "/bin/sh", "-c", mount, "sh"});
        const outcome told = child_process(run, directory(), user).wait();
        EXPECT_EQ(told.out, "link 1\ntried 19\n") << told.err;
    }
}

} // namespace

} // namespace e2e
