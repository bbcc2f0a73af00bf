#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/session_fixture.h"

// The agent and the commands that talk to a session, on sessions that run.

namespace e2e {

namespace {

using nlohmann::json;

class session_commands : public session_test {
protected:
    /// A session whose shell runs each line of the file "do" as it is added, until "exit".
    command listening()
    {
        return shell("n=1; while :; do if [ -e do$n ]; then . ./do$n; n=$((n+1)); else sleep 0.02; fi; done");
    }
    /// Has the session's shell run this, and returns when it has.
    void have_run(const std::string& line)
    {
        const fs::path done = directory() / ("done" + std::to_string(lines_ + 1));
        add_line(line + "\n: >'" + done.string() + "'");
        EXPECT_TRUE(eventually([&] { return fs::exists(done); })) << line;
    }
    void end(child_process& supervisor)
    {
        add_line("exit 0");
        EXPECT_EQ(supervisor.wait().status, 0);
    }

    fs::path state() const { return directory() / "state"; }

    command tool(command line) const
    {
        line.insert(line.begin(), SORVANIC_PROGRAM);
        line.insert(line.end(), {"--state", state()});
        return line;
    }
    fs::path place()
    {
        fs::path made = directory() / ("tool" + std::to_string(++tools_));
        fs::create_directory(made);
        return made;
    }
    outcome run_tool(const command& line, uid_t user = 0)
    {
        return child_process(tool(line), place(), user).wait();
    }

    /// What a command of this session shows, as JSON.
    json status() { return json::parse(run_tool({"status", "--json"}).out); }

    json tables() { return status().at("tables"); }

    bool shows_agent(pid_t process)
    {
        return eventually([&] { return status().at("agent").at("pid") == process; });
    }

private:
    /// It is there at once, or the shell would read a part.
    void add_line(const std::string& line)
    {
        const fs::path script = directory() / ("do" + std::to_string(++lines_));
        std::ofstream(script.string() + "~") << line << "\n";
        fs::rename(script.string() + "~", script);
    }

    int lines_ = 0;
    int tools_ = 0;
};

std::vector<std::string> lines_of(const fs::path& file)
{
    std::istringstream text(read_file(file));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

TEST_F(session_commands, keep_every_record_while_the_agents_file_is_rotated)
{
    std::string first;
    std::string second;
    for (int i = 0; i < 20; ++i) {
        const std::string name = "p" + std::to_string(i);
        unlisted(name, "#!/nowhere\n#" + name);
        (i < 10 ? first : second) += "./" + name + " 2>/dev/null; ";
    }
    child_process supervisor(session(listening(), {"--quiet"}), directory());
    port();
    const fs::path file = directory() / "records";
    child_process agent(tool({"agent", "--json", "--output", file}), place());
    ASSERT_TRUE(shows_agent(agent.pid()));
    have_run(first);
    EXPECT_TRUE(eventually([&] { return lines_of(file).size() == 10; }));
    fs::rename(file, file.string() + ".1");
    agent.send(SIGHUP);
    EXPECT_TRUE(eventually([&] { return fs::exists(file); }));
    agent.send(SIGSTOP); // all of them wait in its queue
    have_run(second);
    agent.send(SIGTERM);
    agent.send(SIGCONT);
    EXPECT_EQ(agent.wait().status, 0);
    EXPECT_TRUE(shows_agent(0));

    int next = 0;
    for (const fs::path& each : {fs::path(file.string() + ".1"), file})
        for (const std::string& line : lines_of(each)) {
            const json record = json::parse(line);
            EXPECT_EQ(record.at("path"), (directory() / ("p" + std::to_string(next++))).string());
            EXPECT_EQ(record.at("kind"), "untp");
            EXPECT_EQ(record.at("kind_number"), 2);
            EXPECT_EQ(record.at("class"), 6);
            EXPECT_EQ(record.at("class_word"), "no-user");
            const auto received = record.at("received").get<std::string>();
            EXPECT_EQ(received.size(), 24u) << received;
            EXPECT_EQ(received.substr(19, 1) + received.substr(23), ".Z") << received;
        }
    EXPECT_EQ(next, 20);
    end(supervisor);
}

TEST_F(session_commands, an_agent_is_told_why_it_cannot_connect_and_that_the_session_has_ended)
{
    EXPECT_NE(run_tool({"agent"}).err.find("no session"), std::string::npos);
    fs::create_directory(state());
    fs::permissions(state(), fs::perms(0755));
    child_process supervisor(session(listening()), directory());
    port();
    if (geteuid() == 0) {
        const outcome stranger = run_tool({"agent"}, nobody);
        EXPECT_EQ(stranger.status, 1);
        EXPECT_NE(stranger.err.find("may not talk"), std::string::npos) << stranger.err;
    }
    child_process agent(tool({"agent"}), place());
    ASSERT_TRUE(shows_agent(agent.pid()));
    const std::string other = "another agent is connected: process " + std::to_string(agent.pid());
    outcome second = run_tool({"agent"});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.err.find(other + "\n"), std::string::npos) << second.err;
    // One that leaves makes way, one that is killed does not.
    agent.send(SIGINT);
    EXPECT_EQ(agent.wait().status, 0);
    child_process third(tool({"agent"}), place());
    ASSERT_TRUE(shows_agent(third.pid()));
    end(supervisor);
    const outcome ended = third.wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.err.find("the session has ended\n"), std::string::npos) << ended.err;
    EXPECT_NE(run_tool({"status"}).err.find("has ended\n"), std::string::npos);
}

TEST_F(session_commands, notices_an_agent_that_was_killed_or_lost_its_reader)
{
    unlisted("a", "#!/nowhere\n#a");
    unlisted("b", "#!/nowhere\n#b");
    child_process supervisor(session(listening(), {"--quiet"}), directory());
    port();
    // It leaves when it notices, so that another one can come.
    child_process reader(
        {"/bin/sh", "-c", "\"$0\" agent --state \"$1\" | { read line; exit 0; }", SORVANIC_PROGRAM, state()},
        place());
    EXPECT_TRUE(eventually([&] { return status().at("agent").at("connected") == true; }));
    have_run("./a 2>/dev/null; ./b 2>/dev/null; sleep 0.1; ./a 2>/dev/null");
    EXPECT_EQ(reader.wait().status, 0);
    ASSERT_TRUE(shows_agent(0));
    pid_t killed = 0;
    {
        child_process agent(tool({"agent"}), place());
        killed = agent.pid();
        ASSERT_TRUE(shows_agent(killed));
    }
    const outcome next = run_tool({"agent"});
    EXPECT_NE(next.err.find("process " + std::to_string(killed) + ", which has ended"), std::string::npos)
        << next.err;
    end(supervisor);
}

TEST_F(session_commands, a_reload_reads_the_tables_that_it_names)
{
    child_process supervisor(session(listening()), directory());
    port();
    std::map<std::string, int> expected;
    for (const json& table : tables())
        expected[table.at("name")] = table.at("generation");
    ASSERT_EQ(expected.size(), 16u);
    std::vector<command> requests = {{"all"}, {"dac", "platuser"}};
    for (const auto& [name, generation] : expected)
        requests.push_back({name});
    for (const command& names : requests) {
        std::set<std::string> read(names.begin(), names.end());
        if (read.contains("whitelist") || read.contains("workdir"))
            read = {"whitelist", "workdir"};
        command line = {"reload"};
        line.insert(line.end(), names.begin(), names.end());
        const outcome result = run_tool(line);
        EXPECT_EQ(result.status, 0) << result.err;
        for (auto& [name, generation] : expected) {
            const bool was_read = names[0] == "all" || read.contains(name);
            generation += was_read ? 1 : 0;
            EXPECT_EQ(("\n" + result.out).find("\n" + name + " ") != std::string::npos, was_read)
                << result.out;
        }
        for (const json& table : tables())
            EXPECT_EQ(table.at("generation"), expected[table.at("name")]) << table << " after " << names[0];
    }
    end(supervisor);
}

TEST_F(session_commands, keeps_its_directories_when_they_are_moved_and_replaced)
{
    child_process supervisor(session(listening()), directory());
    port();
    const fs::path moved = directory() / "moved";
    for (const fs::path& each : {policy(), state()}) {
        fs::create_directories(moved);
        fs::rename(each, moved / each.filename());
        fs::create_directory(each);
    }
    encoded("statlabel", "1\n"); // a forgery, which would allow everything
    const auto tool_there = [&](command line) {
        line.insert(line.begin(), SORVANIC_PROGRAM);
        line.insert(line.end(), {"--state", (moved / state().filename()).string()});
        return child_process(line, place()).wait();
    };
    const outcome result = tool_there({"reload", "all"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json now = json::parse(tool_there({"status", "--json"}).out);
    EXPECT_EQ(now.at("switches").at("system"), 3);
    EXPECT_EQ(now.at("tables").at(0).at("generation"), 2);
    EXPECT_TRUE(fs::is_empty(state()));
    end(supervisor);
}

TEST_F(session_commands, logs_a_user_in_and_ends_phases_as_asked)
{
    encoded("platuser", "alice\n");
    encoded("installlabel", "2\n");
    child_process supervisor(session(listening(), {"--quiet"}), directory());
    port();
    const std::string self = std::to_string(getpid());
    EXPECT_EQ(run_tool({"login", "--pid", self, "--user", "alice", "--first"}).status, 0);
    EXPECT_EQ(status().at("confined"), json::parse(R"([{"user":"alice","state":0}])"));
    const outcome unknown = run_tool({"login", "--pid", self, "--user", "eve", "--first"});
    EXPECT_EQ(unknown.status, 0);
    EXPECT_NE(unknown.err.find("not in the session's platuser"), std::string::npos) << unknown.err;
    EXPECT_EQ(run_tool({"login", "--pid", "999999999", "--user", "eve"}).status, 1);
    EXPECT_EQ(run_tool({"shell-reset"}).status, 0);
    EXPECT_EQ(run_tool({"install-end"}).status, 0);
    encoded("installlabel", "1\n");
    EXPECT_EQ(run_tool({"reload", "installlabel"}).status, 0);
    const outcome not_heard = run_tool({"install-end"});
    EXPECT_EQ(not_heard.status, 1);
    EXPECT_NE(not_heard.err.find("does not permit installations"), std::string::npos) << not_heard.err;
    const std::string log = kernel_log();
    EXPECT_NE(log.find("Username [alice] Login ID [" + self + "] current PID ["), std::string::npos) << log;
    EXPECT_NE(log.find("Username [eve] Login ID [" + self + "]"), std::string::npos) << log;
    EXPECT_EQ(log.find("netlink response pam error"), std::string::npos) << log;
    end(supervisor);
}

TEST_F(session_commands, its_own_agent_gets_the_first_and_the_last_record)
{
    const fs::path file = directory() / "records";
    std::string script;
    std::vector<fs::path> refused = {unlisted("first", "#!/nowhere\n#first")};
    for (int i = 0; i < 50; ++i) {
        const std::string name = "p" + std::to_string(i);
        refused.push_back(unlisted(name, "#!/nowhere\n#" + name));
        script += "./" + name + (i < 49 ? " 2>/dev/null; " : "");
    }
    EXPECT_EQ(run_session({refused[0]}, {"--quiet", "--audit", file, "--json"}).status, 126);
    EXPECT_EQ(run_session(shell(script), {"--quiet", "--audit", file, "--json"}).status, 126);
    const std::vector<std::string> lines = lines_of(file);
    ASSERT_EQ(lines.size(), refused.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(json::parse(lines[i]).at("path"), refused[i].string());

    const outcome full = run_session(shell(script), {"--quiet", "--audit", "/dev/full"});
    EXPECT_NE(full.err.find("records are being lost"), std::string::npos) << full.err;
    const outcome nowhere = run_session(shell(script), {"--audit", file / "below"});
    EXPECT_EQ(nowhere.status, 125) << nowhere.err;

    child_process supervisor(session(listening(), {"--audit", "-"}), directory());
    port();
    ASSERT_TRUE(shows_agent(supervisor.pid()));
    EXPECT_NE(run_tool({"agent"}).err.find("another agent is connected"), std::string::npos);
    end(supervisor);
    EXPECT_FALSE(json::parse(status_file("session.json")).at("agent").at("connected"));
}

} // namespace

} // namespace e2e
