#include "session/explain.h"

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "source/manifest.h"
#include "source/prepared.h"
#include "tests/temporary_directory.h"

// What explaining tells of generated policies, and what its changes do when they are applied.

namespace session {
namespace {

/// A policy.toml that can be changed.
struct written_policy {
    std::map<std::string, std::map<std::string, std::vector<std::string>>> files; ///< by path and program
    std::map<std::string, std::vector<std::string>> of_alice;                     ///< by path
    std::set<std::string> allow;
    std::set<std::string> deny;
    std::set<std::string> protect;
    std::string mode = "enforce";

    static std::string list(const std::set<std::string>& of)
    {
        return of.empty() ? "[]" : fmt::format("[\"{}\"]", fmt::join(of, "\", \""));
    }

    std::string text() const
    {
        std::string all = fmt::format("mode = \"{}\"\ncontrol = [\"programs\", \"files\"]\n"
                                      "[programs]\nallow = {}\ndeny = {}\n[protect]\nprograms = {}\n",
                                      mode, list(allow), list(deny), list(protect));
        for (const auto& [path, rules] : files) {
            all += fmt::format("[[files]]\npath = \"{}\"\n[files.program]\n", path);
            for (const auto& [program, words] : rules)
                all += fmt::format("\"{}\" = [\"{}\"]\n", program, fmt::join(words, "\", \""));
            if (const auto alice = of_alice.find(path); alice != of_alice.end())
                all += fmt::format("[files.user]\nalice = [\"{}\"]\n", fmt::join(alice->second, "\", \""));
        }
        return all;
    }

    void apply(const policy_change& change)
    {
        using change_kind = policy_change::kind;
        if (change.what == change_kind::grant)
            files[change.path][change.program] = change.access;
        if (change.what == change_kind::undeny)
            deny.erase(change.program);
        if (change.what == change_kind::undeny || change.what == policy_change::kind::allow)
            allow.insert(change.program);
        if (change.what == change_kind::unprotect)
            protect.erase(change.program);
    }
};

class explained : public testing::Test {
protected:
    explained()
    {
        data_.write("srv/d/f", "x");
        data_.write("srv/g", "x");
        data_.write("out/g", "x");
        for (const char* const name : {"one", "two", "three"})
            data_.write(fmt::format("bin/{}", name), fmt::format("\x7f"
                                                                 "ELF {}",
                                                                 name));
        for (const char* const program : {"viewer", "editor"})
            for (const char* const user : {"", "alice"}) {
                const auto add = [&](const char* what, std::string object, explained_call more = {}) {
                    more.what = what;
                    more.object = std::move(object);
                    more.program = program;
                    more.user = user;
                    calls_.push_back(more);
                };
                add("open", data_ / "srv/d/f");
                add("open", data_ / "srv/g", {.what = {}, .object = {}, .reads = false, .writes = true});
                add("open", data_ / "out/g", {.what = {}, .object = {}, .reads = true, .writes = true});
                add("create", data_ / "srv/d/new");
                add("mkdir", data_ / "srv/made");
                add("delete", data_ / "srv/d/f");
                add("link", data_ / "srv/g", {.what = {}, .object = {}, .second = data_ / "srv/d/l"});
                add("rename", data_ / "srv/g", {.what = {}, .object = {}, .second = data_ / "srv/h"});
                add("chmod", data_ / "srv/d/f", {.what = {}, .object = {}, .number = 0600});
                for (const char* const name : {"bin/one", "bin/two", "bin/three"})
                    add("exec", data_ / name);
                add("signal", "/usr/bin/sleep", {.what = {}, .object = {}, .number = 9});
            }
    }

    std::vector<explanation> explain(const written_policy& policy)
    {
        const std::string file = data_.write("policy.toml", policy.text());
        source::findings found;
        const source::prepared ready(file, data_ / "built", found);
        EXPECT_FALSE(found.failed()) << policy.text();
        explainer asked(ready.directory(), source::read_manifest(ready.directory())->lines);
        std::vector<explanation> all;
        for (const explained_call& call : calls_)
            all.push_back(asked.explain(call));
        return all;
    }

    written_policy generated(std::mt19937& random)
    {
        const std::vector<std::vector<std::string>> words = {
            {"none"}, {"read"}, {"read", "execute"}, {"read", "write"}, {"read", "write", "create"},
            {"edit"}};
        written_policy made;
        for (const char* const path : {"srv", "srv/d", "srv/g"}) {
            if (random() % 3 == 0)
                continue;
            auto& rules = made.files[data_ / path];
            for (const char* const program : {"viewer", "editor", "*"})
                if (random() % 2 == 0)
                    rules[program] = words[random() % words.size()];
            if (random() % 3 == 0)
                made.of_alice[data_ / path] = words[random() % words.size()];
        }
        for (const char* const name : {"bin/one", "bin/two", "bin/three"}) {
            if (random() % 2 == 0)
                made.allow.insert(data_ / name);
            if (random() % 3 == 0)
                made.deny.insert(data_ / name);
        }
        if (random() % 2 == 0)
            made.protect.insert("sleep");
        return made;
    }

    temporary_directory data_;
    std::vector<explained_call> calls_;
};

TEST_F(explained, calls_are_allowed_once_the_named_change_is_applied)
{
    std::mt19937 random(21);
    unsigned changed = 0;
    for (int round = 0; round < 6; ++round) {
        const written_policy policy = generated(random);
        SCOPED_TRACE(policy.text());
        const auto before = explain(policy);
        written_policy observing = policy;
        observing.mode = "observe";
        const auto observed = explain(observing);
        for (std::size_t at = 0; at < calls_.size(); ++at) {
            SCOPED_TRACE(fmt::format("{} {} as {}, {}", calls_[at].what, calls_[at].object,
                                     calls_[at].program, calls_[at].user));
            ASSERT_EQ(before[at].error, 0);
            ASSERT_FALSE(before[at].steps.empty());
            ASSERT_FALSE(observed[at].refused());
            if (calls_[at].what != "link") { // observing asks about the new name only
                ASSERT_EQ(observed[at].refusing(), before[at].refused());
            }
            if (!before[at].refused() || calls_[at].what == "rename" || random() % 4 != 0)
                continue;
            written_policy better = policy;
            for (const explained_step& step : before[at].steps)
                if (step.refused) {
                    ASSERT_NE(
                        step.place.find(step.change.what == policy_change::kind::allow ? "" : "policy.toml:"),
                        std::string::npos);
                    ASSERT_NE(step.change.what, policy_change::kind::none);
                    better.apply(step.change);
                }
            ++changed;
            const auto after = explain(better);
            ASSERT_FALSE(after[at].refused()) << better.text();
            for (std::size_t other = 0; other < calls_.size(); ++other) {
                if (!before[other].refused()) {
                    ASSERT_FALSE(after[other].refused()) << calls_[other].what << " under " << better.text();
                } else if (calls_[other].program != calls_[at].program && calls_[at].what != "exec" &&
                           calls_[at].what != "signal") {
                    ASSERT_TRUE(after[other].refused()) << calls_[other].what << " under " << better.text();
                }
            }
        }
    }
    EXPECT_GT(changed, 20U);
}

} // namespace
} // namespace session
