#include "platform/user/driver/decisions.h"

#include <array>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "policy/catalogue.h"
#include "tests/enforce/file_machine.h"

namespace {

using kernel::decided_by;

struct told {
    int result;
    kernel::decision made;
};

/// Generated text tables, of which each line has its number in the file.
class text_policy {
public:
    explicit text_policy(std::mt19937& random) : random_(random)
    {
        const std::vector<std::string> paths = {"/srv", "/srv/d", "/srv/d/f", ""};
        add("dirctl", 2, [&] { return of({"/srv", "/srv/d", "/other"}); });
        add("appevp", 3, [&] { return line(of(paths), of({"viewer", "/bin/viewer", "*", "editor"})); });
        add("dac", 3, [&] { return line(of(paths), of({"alice", "bob"})); });
        add("priv", 1, [&] { return line(of({"/srv/d", "/other"}), "alice"); });
        add("sublabel", 1, [&] { return "alice" + label(); });
        add("objlabel", 2, [&] { return of(paths) + label(); });
    }

    /// The same in which the rule on that line of a table grants everything.
    text_policy granting(const std::string& table, unsigned number) const
    {
        text_policy changed = *this;
        std::string& rule = changed.tables_.at(table).at(number - 1);
        rule = rule.substr(0, rule.rfind(':')) + ":4095";
        return changed;
    }

    std::string files() const
    {
        std::string all;
        for (const auto& [name, lines] : tables_) {
            all += " " + name + "=";
            for (const std::string& one : lines)
                all += one + "\n";
            all.pop_back();
        }
        return all;
    }

private:
    std::string of(const std::vector<std::string>& choices) { return choices[random_() % choices.size()]; }
    std::string line(const std::string& path, const std::string& who)
    {
        const std::string begin = path + ":" + who + ":";
        return begin + std::to_string(random_() % 16);
    }
    std::string label()
    {
        const std::string category = of({"0", "0", "1"});
        return ":0:" + std::to_string(random_() % 3) + ":" + std::to_string(random_() % 3) + ":" + category +
               ",0,0,0,0,0,0,0";
    }
    template <typename Make>
    void add(const std::string& name, unsigned most, Make make)
    {
        std::vector<std::string>& lines = tables_[name];
        for (auto n = 1 + random_() % most; n > 0; --n) {
            if (random_() % 3 == 0)
                lines.push_back("#comment");
            lines.push_back(make());
        }
    }

    std::mt19937& random_;
    std::map<std::string, std::vector<std::string>> tables_;
};

constexpr const char* events[] = {"file:4 /srv/d/f",      "file:2 /srv/d/f",    "inode:6 /srv/d/f",
                                  "file:1 /srv/g",        "create /srv/d/new+", "unlink /srv/d/f",
                                  "mkdir /srv/x+",        "rmdir /srv/d/",      "symlink /srv/d/s+",
                                  "rename /srv/g /out/g", "file:2 /out/g"};

std::vector<told> decisions(const std::string& files)
{
    file_machine m;
    m.policy(files);
    m.start("viewer", "alice");
    std::vector<told> all;
    for (const char* const event : events) {
        const platform::decision_watch watch;
        const int result = m.act(event);
        all.push_back({result, watch.last()});
    }
    m.log();
    return all;
}

TEST(decisions, tell_the_verdict_and_the_rule_whose_change_alters_it)
{
    std::mt19937 random(11);
    unsigned by_rules = 0;
    for (int round = 0; round < 60; ++round) {
        const text_policy policy(random);
        const std::vector<told> enforced = decisions(policy.files());
        const std::vector<told> observed = decisions(policy.files() + " statlabel=2");
        for (std::size_t at = 0; at < enforced.size(); ++at) {
            SCOPED_TRACE(std::string(events[at]) + " under" + policy.files());
            const auto& [result, made] = enforced[at];
            const kernel::decision& seen = observed[at].made;
            ASSERT_EQ(made.refused, result != 0);
            ASSERT_EQ(made.refusing, made.refused);
            ASSERT_EQ(observed[at].result, 0);
            ASSERT_FALSE(seen.refused);
            ASSERT_EQ(seen.refusing, made.refusing);
            ASSERT_EQ(std::tuple(seen.step, seen.table, seen.line),
                      std::tuple(made.step, made.table, made.line));
            if (result == 0 || (made.step != decided_by::program_rule && made.step != decided_by::user_rule))
                continue;
            ++by_rules;
            const std::string table = policy_files[made.table].name;
            ASSERT_EQ(decisions(policy.granting(table, made.line).files())[at].result, 0)
                << table << ":" << made.line;
        }
    }
    EXPECT_GT(by_rules, 40U);
}

TEST(decisions, name_the_list_and_the_record_that_has_the_program)
{
    const std::vector<std::string> contents = {"a", "b", "c", "d"};
    std::mt19937 random(12);
    for (int round = 0; round < 40; ++round) {
        std::map<std::string, std::string> lists;
        for (const char* const list : {"blacklist", "whitelist", "supertrustfile"})
            for (const std::string& one : contents)
                if (random() % 3 == 0)
                    lists[list] += (lists[list].empty() ? "" : ",") + one;
        std::string files = "modllabel=2000 workdir=/work";
        for (const auto& [name, text] : lists)
            files += " " + name + "=" + text;
        for (const std::string& content : contents) {
            SCOPED_TRACE(content + " under " + files);
            std::array<told, 2> both = {};
            for (const bool enforcing : {false, true}) {
                support::machine m;
                m.policy(files + " statlabel=" + (enforcing ? "3" : "2"));
                m.write("/bin/sh", "sh");
                m.write("/bin/x", content);
                ASSERT_EQ(m.load(), 0);
                m.process(20, 1, "/bin/sh");
                const platform::decision_watch watch;
                const int result = m.exec(20, "/bin/x");
                both[enforcing] = {result, watch.last()};
                ASSERT_EQ(watch.last().refused, result != 0);
                m.log();
            }
            const kernel::decision& made = both[1].made;
            ASSERT_EQ(both[0].made.refusing, made.refused);
            ASSERT_EQ(both[0].made.step, made.step);
            if (made.table == kernel::no_table) {
                ASSERT_EQ(made.step, decided_by::unknown_program);
                continue;
            }
            const std::string& list = lists[policy_files[made.table].name];
            ASSERT_EQ(list.substr(2 * (made.line - 1), 1), content);
            ASSERT_EQ(made.refused, made.step == decided_by::black_list);
        }
    }
}

} // namespace
