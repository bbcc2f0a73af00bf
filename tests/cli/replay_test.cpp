#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/commands.h"

using namespace cli_test;

namespace {

/// A policy and a file tree; every program of the tree is a file that holds its own path.
struct replay : ::testing::Test {
    void SetUp() override
    {
        std::string white;
        for (const char* program : {"/bin/bash", "/bin/ls", "/usr/bin/passwd", "/opt/sorvall"})
            white += files.write("tree" + std::string(program), program) + "\n";
        files.write("tree/opt/new", "/opt/new");
        files.write("tree/srv/open", "");
        for (const auto& [name, text] : {std::pair<const char*, std::string>{"statlabel", "3"},
                                         {"modllabel", "2000"},
                                         {"installlabel", "2"},
                                         {"platuser", "operator"},
                                         {"whitelist", white}})
            files.write("text/" + std::string(name), text);
    }

    void build()
    {
        expect_in(sorvanic({"policy", "build", files / "text", files / "built"}).out, {"statlabel"});
    }

    outcome ask(const std::string& events, std::vector<std::string> options = {})
    {
        if (!std::filesystem::exists(files / "built"))
            build();
        options.insert(options.begin(), {"replay", "--policy", files / "built", "--root", files / "tree",
                                         files.write("events", events)});
        return sorvanic(options);
    }

    temporary_directory files;
};

/// What stands in the document's block of that name.
std::string block(const std::string& name)
{
    std::ifstream stream(SORVANIC_EVENTS_DOCUMENT);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    const std::string start = "```json " + name + "\n";
    const std::size_t at = text.find(start);
    if (at == std::string::npos)
        return "(no such block)";
    return text.substr(at + start.size(), text.find("```\n", at + start.size()) - at - start.size());
}

TEST_F(replay, answers_the_documented_example_as_documented)
{
    const outcome got = ask(block("events"), {"--agent"});
    EXPECT_EQ(got.status, 0) << got.err;
    EXPECT_EQ(got.out, block("answers"));
}

TEST_F(replay, answers_every_kind_of_event_whole)
{
    files.write("text/modllabel", "2020");
    files.write("text/auditlabel", "2:2\n3:2\n5:2\n");
    files.write("text/dirctl", "/srv\n");
    files.write("text/dac", "/srv/open:operator:6\n");
    files.write("text/ptpylist", "crond\n");
    const std::string faau = R"({"kind":"faau","path":"/srv/open","process":"login","user":"operator")";
    const struct {
        std::string event, result, log, audit;
    } cases[] = {
        {R"({"event":"task","pid":100,"parent":1,"comm":"login","exe":"/bin/bash"})", "null", "", ""},
        {R"({"event":"login","pid":100,"user":"operator","mode":1})", "null",
         R"("Response Policy Request Success","Username [operator] Login ID [100] current PID [100] Mode [1]")",
         ""},
        {R"({"event":"exec","pid":100,"path":"/opt/none","filename":"./none"})", "-1", "",
         ""}, // key 0, which is no news
        {R"({"event":"helo","pid":90})", "null", R"("Response Helo Request Success","Process [90] Register")",
         ""},
        {R"({"event":"file","pid":100,"op":"file_permission","path":"/srv/open","mask":4})", "0", "",
         faau + R"(,"decision":1,"class":4})"},
        {R"({"event":"file","pid":100,"op":"inode_permission","path":"/srv/open","mask":3})", "-1", "",
         faau + R"(,"decision":2,"class":4})"},
        {R"({"event":"file","pid":100,"op":"inode_permission","path":"/srv/none","mask":2})", "0", "", ""},
        {R"({"event":"file","pid":100,"op":"rename","path":"/bin/ls","to":"/srv/ls"})", "-1", "", ""},
        {R"({"event":"task","pid":200,"parent":100,"comm":"crond","exe":"/bin/crond"})", "null", "", ""},
        {R"({"event":"file","pid":200,"op":"unlink","path":"/etc/sorvanic/whitelist"})", "-1", "", ""},
        {R"({"event":"kill","pid":100,"target":200,"signal":9})", "-1", "", ""},
        {R"({"event":"settime","pid":100,"seconds":1})", "0", R"("send syst message success: 1  5")",
         R"({"kind":"syst","requested":1,"current":5})"},
        {R"({"event":"reload","pid":100,"mask":1024})", "null",
         R"("Response Policy Request Success","send plau audit !")",
         R"({"kind":"plau","user":"operator","mask":1024,"result":1})"},
        {R"({"event":"shell_reset","pid":90})", "null", "", ""},
        {R"({"event":"quit","pid":91})", "null",
         R"("Response Quit Request Success","Process Pid [90] Pid [91]",)"
         R"("Process [90] Exist, Process [91] Connect To Kernel Failed","Response Quit Request Failed")",
         ""},
        {R"({"event":"exit","pid":100})", "null", "", ""},
        {R"({"event":"kill","pid":1,"target":200,"signal":9})", "-1", "", ""},
    };
    std::string events;
    std::string answers;
    int n = 0;
    for (const auto& each : cases) {
        events += "\n" + each.event + "\n";
        answers += R"({"n":)" + std::to_string(++n) + R"(,"result":)" + each.result + R"(,"log":[)" +
                   each.log + R"(],"audit":[)" + each.audit + "]}\n";
    }
    const outcome got = ask(events, {"--now", "5"});
    EXPECT_EQ(got.status, 0) << got.err;
    EXPECT_EQ(got.out, answers);
}

TEST_F(replay, keeps_arguments_marks_and_names_between_events)
{
    files.write("text/modllabel", "2020");
    files.write("tree/etc/shadow", "");
    std::filesystem::create_hard_link(files / "tree/opt/new", files / "tree/opt/other");
    std::filesystem::create_symlink("/opt/new", files / "tree/opt/link");
    const std::pair<const char*, const char*> cases[] = {
        {R"({"event":"task","pid":100,"parent":1,"comm":"login","exe":"/bin/bash"})", "null"},
        {R"({"event":"login","pid":100,"user":"operator","mode":0})", "null"},
        {R"({"event":"exec","pid":100,"path":"/bin/ls","filename":"ls"})", "-1"},
        {R"({"event":"exec","pid":100,"path":"/usr/bin/passwd","filename":"passwd","args":["passwd","x"]})",
         "0"},
        {R"({"event":"file","pid":100,"op":"rename","path":"/etc/nshadow","to":"/etc/shadow"})", "0"},
        {R"({"event":"exec","pid":100,"path":"/bin/ls","filename":"ls"})", "-1"},
        {R"({"event":"exec","pid":100,"path":"/usr/bin/passwd","filename":"passwd","args":["passwd","operator"]})",
         "0"},
        {R"({"event":"exec","pid":100,"path":"/usr/bin/passwd","filename":"passwd"})", "0"}, // keeps them
        {R"({"event":"fork","pid":100,"child":101})", "null"},
        {R"({"event":"file","pid":101,"op":"rename","path":"/etc/nshadow","to":"/etc/shadow"})", "0"},
        {R"({"event":"exec","pid":100,"path":"/bin/ls","filename":"ls"})", "0"},
        {R"({"event":"task","pid":200,"parent":1,"comm":"bash","exe":"/bin/bash"})", "null"},
        {R"({"event":"fork","pid":200,"child":201})", "null"},
        {R"({"event":"exec","pid":201,"path":"/opt/sorvall","filename":"/opt/sorvall"})", "0"},
        {R"({"event":"fork","pid":201,"child":202})", "null"},
        {R"({"event":"file","pid":202,"op":"setattr","path":"/opt/link","mode":33261})", "0"},
        {R"({"event":"exec","pid":202,"path":"/opt/other","filename":"./other"})", "0"},
        {R"({"event":"reload","pid":202,"mask":1024})", "null"},
        {R"({"event":"exit","pid":201})", "null"}, // and 202 is a child of init
        {R"({"event":"exec","pid":202,"path":"/opt/other","filename":"./other"})", "-1"},
    };
    std::string events;
    for (const auto& [event, result] : cases)
        events += std::string(event) + "\n";
    const outcome got = ask(events);
    EXPECT_EQ(got.status, 0) << got.err;
    std::istringstream lines(got.out);
    for (const auto& [event, result] : cases) {
        std::string line;
        std::getline(lines, line);
        EXPECT_NE(line.find("\"result\":" + std::string(result) + ","), line.npos) << event << " " << line;
    }
}

TEST_F(replay, judges_what_links_lead_to)
{
    files.write("text/modllabel", "2020");
    files.write("text/dirctl", "/srv\n");
    build();
    const std::pair<const char*, const char*> links[] = {{"/etc/sorvanic", "tree/srv/policy"},
                                                         {"../etc", "tree/srv/configuration"},
                                                         {"statlabel", "built/inside"},
                                                         {"../../srv", "built/outside"},
                                                         {"/opt/none", "tree/opt/dangling"}};
    for (const auto& [target, link] : links)
        std::filesystem::create_symlink(target, files / link);
    const auto file = [](const std::string& operation, const std::string& path) {
        return R"({"event":"file","pid":100,"op":")" + operation + R"(","path":")" + path +
               R"(","mask":2,"mode":33261})";
    };
    const std::pair<std::string, int> cases[] = {
        {file("unlink", "/etc/sorvanic/whitelist"), -1},
        {file("unlink", "/srv/policy/whitelist"), -1},
        {file("unlink", "/srv/configuration/sorvanic/whitelist"), -1},
        {file("inode_permission", "/srv/policy/inside"), -1},
        {file("inode_permission", "/etc/sorvanic/outside/open"), -1}, // by the rule for /srv
        {file("file_permission", "/etc/sorvanic/outside/open"), -1},
        {file("unlink", "/etc/passwd"), 0},
    };
    std::string events = R"({"event":"task","pid":100,"parent":1,"comm":"editor","exe":"/bin/bash"})"
                         "\n";
    for (const auto& [event, result] : cases)
        events += event + "\n";
    const outcome got = ask(events);
    EXPECT_EQ(got.status, 0) << got.err;
    std::istringstream lines(got.out);
    std::string line;
    std::getline(lines, line);
    for (const auto& [event, result] : cases) {
        std::getline(lines, line);
        expect_in(line, {"\"result\":" + std::to_string(result) + ","});
        EXPECT_FALSE(HasFailure()) << event;
    }
}

TEST_F(replay, gives_a_program_that_is_not_there_one_key_by_every_name)
{
    std::filesystem::create_symlink("/opt/none", files / "tree/opt/dangling");
    const std::string start = R"({"event":"task","pid":100,"parent":1,"comm":"bash","exe":"/bin/bash"})"
                              "\n";
    const auto answer = [&](const std::string& path) {
        const std::string got =
            ask(start + R"({"event":"exec","pid":100,"path":")" + path + R"(","filename":"x"})", {"--agent"})
                .out;
        return got.substr(got.find('\n'));
    };
    EXPECT_EQ(answer("/opt/dangling"), answer("/opt/none"));
}

TEST_F(replay, stops_at_a_line_that_is_not_understood)
{
    const std::pair<const char*, const char*> cases[] = {
        {"{", "no JSON"},
        {"[]", "no JSON object"},
        {R"({"event":"exit","pid":1e999})", "a number in this line is larger than any"},
        {R"({"pid":1})", "\"event\" is missing"},
        {R"({"event":"forc","pid":1})", "there is no event \"forc\"; those there are: task, fork"},
        {R"({"event":"fork","pid":1})", "\"child\" is missing"},
        {R"({"event":"fork","pid":1,"child":2,"chidl":3})", "there is no \"chidl\""},
        {R"({"event":"fork","pid":1,"child":2,"child":3})", "\"child\" stands there twice"},
        {R"({"event":"fork","pid":"1","child":2})", "\"pid\" is \"1\"; write a whole number from 1"},
        {R"({"event":"fork","pid":1,"child":2147483648})", "\"child\" is 2147483648"},
        {R"({"event":"fork","pid":1,"child":1})", "there is a task 1 already"},
        {R"({"event":"exit","pid":7})", "there is no task 7"},
        {R"({"event":"exit","pid":1})", "never exits"},
        {R"({"event":"kill","pid":1,"target":7,"signal":9})", "there is no task 7"},
        {R"({"event":"exec","pid":1,"path":"x","filename":"x"})", "write a path from"},
        {R"({"event":"exec","pid":1,"path":"/a/../x","filename":"x"})", "write a path from"},
        {R"({"event":"exec","pid":1,"path":"//a","filename":"a"})", "write a path from"},
        {R"({"event":"exec","pid":1,"path":"/a/","filename":"a"})", "write a path from"},
        {R"({"event":"file","pid":1,"op":"file_permission","path":"/x","mask":2147483648})", "to 2147483647"},
        {R"({"event":"file","pid":1,"op":"unlink","path":"/circle/x"})", "lead nowhere"},
        {R"({"event":"exec","pid":1,"path":"/x","filename":null})", "\"filename\" is null; write a text"},
        {R"({"event":"file","pid":1,"op":"read","path":"/x"})", "there is no file operation \"read\""},
        {R"({"event":"file","pid":1,"op":"rename","path":"/x"})", "\"to\" is missing"},
        {R"({"event":"file","pid":1,"op":"setattr","path":"/x"})", "\"mode\" is missing"},
        {R"({"event":"task","pid":2,"parent":1,"comm":"a","exe":null,"args":["a",1]})", "\"args\" is 1"},
    };
    std::filesystem::create_symlink("circle", files / "tree/circle");
    for (const auto& [line, told] : cases) {
        const outcome got = ask("\n{\"event\":\"helo\",\"pid\":9}\n" + std::string(line) + "\n");
        EXPECT_EQ(got.status, 1) << line;
        expect_in(got.err, {files / "events" + ":3: ", told});
        EXPECT_EQ(std::count(got.out.begin(), got.out.end(), '\n'), 1) << got.out;
    }
}

} // namespace
