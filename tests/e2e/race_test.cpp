#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "tests/e2e/session_fixture.h"

// Programs that change what a name means while it is being decided.

namespace e2e {

namespace {

struct race : session_test {
    /// Runs the race and expects that "e" never ran, and that there was a race: "g" did, and "e"
    /// was stopped.
    void expect_no_winner(const std::string& what, const command& before = {}, uid_t user = 0)
    {
        constexpr const char* rounds = "150";
        SCOPED_TRACE(what + " as " + std::to_string(user));
        const fs::path log = directory() / ("log-" + what);
        command run = before;
        run.insert(run.end(), {directory() / "race_exec", what, directory(), "g", "e", rounds, log});
        int ran = 0;
        int stopped = 0;
        std::string expected;
        // Who is faster is the scheduler's choice: on a busy machine one side may win all rounds.
        for (int attempt = 0; attempt < 20 && (ran == 0 || stopped == 0); ++attempt) {
            const outcome result = run_session(run, {}, user);
            int good = 0;
            int refused = 0;
            int killed = 0;
            ASSERT_EQ(
                std::sscanf(result.out.c_str(), "ran %d refused %d killed %d", &good, &refused, &killed), 3)
                << result.out << result.err;
            ran += good;
            stopped += refused + killed;
            for (int i = 0; i < good; ++i)
                expected += "g\n";
            fs::remove(directory() / "link");
        }
        EXPECT_EQ(read_file(log), expected);
        EXPECT_GT(ran, 0);
        EXPECT_GT(stopped, 0);
        fs::remove(log);
    }

    void expect_no_winners()
    {
        victim("race_exec");
        for (const std::string what : {"memory", "link"}) {
            for (const uid_t user : users())
                expect_no_winner(what, {}, user);
        }
    }
};

TEST_F(race, a_program_is_exchanged_for_an_unlisted_one)
{
    const std::string program = read_file(victim("log_program"));
    listed("g", program);
    unlisted("e", program + "x");
    expect_no_winners();
}

TEST_F(race, a_script_is_exchanged_for_an_unlisted_one)
{
    const std::string shell = of_machine("sh");
    listed("g", "#!" + shell + "\necho g >> $1\n");
    unlisted("e", "#!" + shell + "\necho e >> $1\n");
    expect_no_winners();
    if (geteuid() != 0)
        return;
    // The supervisor's rights are not the tree's.
    const fs::path as = of_machine("setpriv");
    expect_no_winner("link", {as, "--reuid", "65534", "--regid", "65534", "--clear-groups"});
}

TEST_F(race, a_script_is_exchanged_behind_env)
{
    of_machine("sh");
    const std::string env = of_machine("env");
    listed("g", "#!" + env + " sh\necho g >> $1\n");
    unlisted("e", "#!" + env + " sh\necho e >> $1\n");
    expect_no_winners();
}

TEST_F(race, a_script_is_exchanged_for_one_that_hands_another_file_to_the_same_interpreter)
{
    const std::string shell = of_machine("sh");
    const fs::path payload = unlisted("payload", "echo e >> $2\n");
    listed("g", "#!" + shell + "\necho g >> $1\n");
    unlisted("e", "#!" + shell + " " + payload.string() + "\n");
    expect_no_winners();
}

TEST_F(race, a_program_is_exchanged_for_an_unlisted_script_that_it_interprets)
{
    victim("race_exec");
    const fs::path good = listed("g", read_file(victim("log_program")));
    // Should it run, "g" would take the script for its log.
    const std::string content = "#!" + good.string() + "\n";
    const fs::path evil = unlisted("e", content);
    fs::permissions(evil, fs::perms::all);
    for (const uid_t user : users())
        expect_no_winner("memory", {}, user);
    EXPECT_EQ(read_file(evil), content);
}

TEST_F(race, a_program_is_exchanged_for_an_unlisted_script)
{
    const std::string shell = of_machine("sh");
    listed("g", read_file(victim("log_program")));
    unlisted("e", "#!" + shell + "\necho e >> $1\n");
    expect_no_winners();
}

// Stores through a mapping that was there before leave the file's times as they are.
TEST_F(race, a_program_is_overwritten_through_a_mapping_while_it_is_digested)
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

} // namespace

} // namespace e2e
