#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/session_fixture.h"

// What a session tells about its decisions: on standard error, in its decision log and through sorvanic why.

namespace e2e {

namespace {

using nlohmann::json;

class decisions : public session_test {
protected:
    /// A session in which a program, a signal and, three times, a file are refused.
    outcome run_refused(const command& options = {})
    {
        const fs::path bad = unlisted("unlisted", read_file(victim("exit_with")) + "x");
        fs::create_directories(data().parent_path());
        std::ofstream(data()) << "old\n";
        encoded("dirctl", data().parent_path().string() + "\n");
        encoded("appevp", "# a comment\n" + data().parent_path().string() + ":*:5\n");
        encoded("ptpylist", "sleep\n");
        is_told = true;
        return run_session(shell("'" + bad.string() + "'; for i in 1 2 3; do echo x >'" + data().string() +
                                 "'; done; sleep 1 & sleep 0.2; kill -9 $!; wait; exit 3"),
                           options);
    }

    fs::path data() const { return directory() / "data/file"; }

    /// What `sorvanic why --json` prints, by the object and the access.
    std::map<std::string, json> told_by_why(const command& options)
    {
        command why = {SORVANIC_PROGRAM, "why", "--json"};
        why.insert(why.end(), options.begin(), options.end());
        child_process asked(why, beside());
        std::istringstream lines(asked.wait().out);
        std::map<std::string, json> all;
        for (std::string line; std::getline(lines, line);) {
            const json one = json::parse(line);
            all[one.value("object", "") + " " + one.value("access", "")] = one;
        }
        return all;
    }
};

/// Which refusals these are, apart from the verdict, times and processes.
std::set<std::string> kinds(const std::map<std::string, json>& told)
{
    std::set<std::string> all;
    for (const auto& [what, one] : told)
        if (what.find("(pid ") == std::string::npos)
            all.insert(what + one.at("step").dump() + one.value("table", "") +
                       std::to_string(one.value("line", 0)));
    return all;
}

TEST_F(decisions, are_told_with_their_reasons_and_alike_while_observing)
{
    const command state = {"--state", (directory() / "state").string()};
    const outcome enforced = run_refused();
    EXPECT_EQ(enforced.status, 3);
    const std::string place = ": the rule for the program does not grant it [appevp:2]; to allow: write \"";
    EXPECT_EQ(count_of(enforced.err, place), 1U) << enforced.err;
    EXPECT_EQ(count_of(enforced.err, "/unlisted: no list has this program; to allow: list \""), 1U)
        << enforced.err;
    EXPECT_EQ(count_of(enforced.err, "the receiver is protected [ptpylist:1]; to allow: "), 1U)
        << enforced.err;
    EXPECT_NE(enforced.err.find("sorvanic: 5 refusals of 3 kinds; sorvanic why shows them\n"),
              std::string::npos)
        << enforced.err;

    const auto refused = told_by_why(state);
    ASSERT_EQ(refused.size(), 3U);
    const json& write = refused.at(data().string() + " write,open");
    EXPECT_EQ(write.at("verdict"), "refused");
    EXPECT_EQ(write.at("count"), 3);
    EXPECT_EQ(write.at("user"), "SYSTEM");
    EXPECT_EQ(write.at("table"), "appevp");
    EXPECT_EQ(write.at("line"), 2);
    EXPECT_EQ(write.at("change").at("path"), data().parent_path().string());
    EXPECT_EQ(write.at("change").at("access"), json({"read", "write", "create"}));
    EXPECT_TRUE(write.at("program").get<std::string>().starts_with('/'));
    EXPECT_EQ(told_by_why({"--state", state[1], data().parent_path().string()}).size(), 1U);

    status = "2";
    const outcome observed = run_refused();
    EXPECT_NE(observed.err.find(", were the policy enforced, of "), std::string::npos) << observed.err;
    EXPECT_EQ(observed.err.find("refused:"), std::string::npos) << observed.err;
    const auto seen = told_by_why(state);
    // What is not refused goes on, and meets more.
    EXPECT_TRUE(std::ranges::includes(kinds(seen), kinds(refused)));
    EXPECT_EQ(seen.size(), refused.size() + 1);
    EXPECT_TRUE(
        std::ranges::all_of(seen, [](const auto& one) { return one.second.at("verdict") == "observed"; }));
}

TEST_F(decisions, are_made_and_counted_when_the_log_takes_none)
{
    const outcome full = run_refused({"--decisions", "/dev/full"});
    EXPECT_EQ(full.status, 3);
    EXPECT_EQ(read_file(data()), "old\n");
    const json shown = json::parse(read_file(directory() / "state/status/session.json"));
    EXPECT_EQ(shown.at("decisions").at("made"), 5);
    EXPECT_EQ(shown.at("decisions").at("lost"), 5);
    EXPECT_NE(full.err.find("sorvanic: 5 decisions lost: the decision log took 0 of 5\n"), std::string::npos)
        << full.err;
}

} // namespace

} // namespace e2e
