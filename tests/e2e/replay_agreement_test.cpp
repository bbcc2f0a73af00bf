#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/session_fixture.h"

// The same scenario on real processes and as written events: the same verdicts, log texts and records.

namespace e2e {

namespace {

using nlohmann::ordered_json;
using replay_agreement = session_test;

/// The lines of a JSON-lines text, without members that differ by nature.
std::string records_of(const std::string& lines)
{
    std::string kept;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        ordered_json record = ordered_json::parse(line);
        for (const char* member : {"version", "received", "kind_number", "class_word"})
            record.erase(member);
        kept += record.dump() + "\n";
    }
    return kept;
}

TEST_F(replay_agreement, a_replay_and_a_session_decide_alike)
{
    const fs::path shell = of_machine("sh");
    const fs::path good = victim("exit_with");
    const std::string program = read_file(good);
    const fs::path unknown = unlisted("unknown", program + "u");
    const fs::path bad = listed("bad", program + "b");
    blacklist(bad);
    fs::create_directories(directory() / "work");
    const fs::path worker = unlisted("work/tool", program + "w");
    const fs::path data = directory() / "data";
    fs::create_directory(data);
    fs::permissions(data, fs::perms::all);
    std::ofstream(data / "notes") << "text\n";
    std::ofstream(policy() / "workdir") << (directory() / "work").string() << "\n";
    encoded("dirctl", data.string() + "\n");
    encoded("appevp", data.string() + ":sh:4\n");
    encoded("auditlabel", "2:2\n3:2\n");

    std::ostringstream events;
    const auto event = [&](const ordered_json& fields) { events << fields << "\n"; };
    event({{"event", "task"}, {"pid", 100}, {"parent", 1}, {"comm", "sh"}, {"exe", shell.string()}});
    std::string script;
    std::string expected;
    int pid = 100;
    for (const fs::path& path : {good, unknown, bad, worker, unknown, bad}) {
        const std::string name = path.string();
        script += name + " 2>/dev/null && echo 0 || echo -1\n";
        event({{"event", "fork"}, {"pid", 100}, {"child", ++pid}});
        event({{"event", "exec"}, {"pid", pid}, {"path", name}, {"filename", name}});
        event({{"event", "exit"}, {"pid", pid}});
        expected += path == good || path == worker ? "0\n" : "-1\n";
    }
    const std::string notes = (data / "notes").string();
    const auto asks = [&](const char* operation, int mask) {
        event({{"event", "file"}, {"pid", 100}, {"op", operation}, {"path", notes}, {"mask", mask}});
    };
    script += "(: <" + notes + ") 2>/dev/null && echo 0 || echo -1\n";
    script += "(: >>" + notes + ") 2>/dev/null && echo 0 || echo -1\n";
    asks("inode_permission", 0x24);
    asks("file_permission", 4); // only an open that was granted asks again
    asks("inode_permission", 0x2a);
    expected += "0\n0\n-1\n";
    std::ofstream(directory() / "events") << events.str();

    const outcome real = run_session({shell, "-c", script}, {"--audit", directory() / "audit", "--json"});
    child_process replay(
        {SORVANIC_PROGRAM, "replay", "--policy", policy(), "--agent", directory() / "events"}, directory());
    const outcome written = replay.wait();
    ASSERT_EQ(written.status, 0) << written.err;

    std::string results;
    std::string log;
    std::string audit;
    std::istringstream answers(written.out);
    for (std::string line; std::getline(answers, line);) {
        const ordered_json answer = ordered_json::parse(line);
        if (!answer.at("result").is_null())
            results += answer.at("result").dump() + "\n";
        for (const auto& text : answer.at("log"))
            log += text.get<std::string>() + "\n";
        for (const auto& record : answer.at("audit"))
            audit += record.dump() + "\n";
    }
    EXPECT_EQ(results, expected);
    expected.erase(expected.rfind("0\n0\n"), 2); // a granted open asks twice, a shell tells once
    EXPECT_EQ(real.out, expected) << real.err;
    EXPECT_NE(kernel_log().find(log), std::string::npos) << "replay: " << log << "session: " << kernel_log();
    EXPECT_EQ(records_of(read_file(directory() / "audit")), audit);
    EXPECT_NE(audit.find("untp"), std::string::npos);
    EXPECT_NE(audit.find("pcau"), std::string::npos);
}

} // namespace

} // namespace e2e
