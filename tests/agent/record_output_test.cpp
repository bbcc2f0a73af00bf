#include "agent/record_output.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>

#include "agent/failure.h"
#include "tests/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using form = agent::record_output::form;

class record_output : public testing::Test {
protected:
    agent::record_output open(form as)
    {
        return {as, name, [this](const std::string& text) { told += text + "\n"; }};
    }
    static void put(agent::record_output& to, std::uint32_t seconds)
    {
        to.write(agent::syst_event{seconds, 0},
                 std::chrono::system_clock::time_point(std::chrono::milliseconds(1007)));
    }
    std::string content() const { return directory.read("records"); }

    const temporary_directory directory;
    const std::string name = directory / "records";
    std::string told;
};

std::string line(int second)
{
    return "1970-01-01T00:00:01.007Z syst clock set to 1970-01-01T00:00:0" + std::to_string(second) +
           "Z, from 1970-01-01T00:00:00Z\n";
}

TEST_F(record_output, tells_of_every_line_that_cannot_be_written)
{
    fs::create_symlink("/dev/full", name);
    agent::record_output out = open(form::text);
    put(out, 1);
    put(out, 1);
    EXPECT_EQ(told, name + ": No space left on device; records are being lost\n");
    EXPECT_EQ(out.lost(), 2u);
    fs::remove(name);
    out.reopen();
    told.clear();
    put(out, 1);
    put(out, 2);
    EXPECT_EQ(told, name + " can be written again; 2 records are missing in it\n");
    EXPECT_EQ(content(), line(1) + line(2));

    // Where the new file cannot be had, the old one goes on.
    fs::remove(name);
    fs::create_directory(name);
    told.clear();
    out.reopen();
    EXPECT_NE(told.find("going on in the former file"), std::string::npos) << told;
    EXPECT_THROW(open(form::text), agent::failure);
}

TEST_F(record_output, holds_whole_lines_only_when_one_does_not_fit)
{
    rlimit found = {};
    getrlimit(RLIMIT_FSIZE, &found);
    signal(SIGXFSZ, SIG_IGN);
    agent::record_output out = open(form::text);
    const rlimit tight = {line(1).size() + 20, found.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    put(out, 1);
    put(out, 2);
    setrlimit(RLIMIT_FSIZE, &found);
    put(out, 2);
    EXPECT_EQ(content(), line(1) + line(2));
    EXPECT_EQ(out.lost(), 1u);
    EXPECT_NE(told.find("1 record is missing"), std::string::npos) << told;
}

TEST_F(record_output, adds_what_only_the_agent_knows)
{
    agent::record_output out = open(form::json);
    put(out, 2);
    out.write(agent::access_event{agent::access_event::by::program_rules, "/p", "vi", "bob", 2, 5},
              std::chrono::system_clock::time_point(std::chrono::milliseconds(-1)));
    EXPECT_EQ(
        content(),
        R"({"version":1,"received":"1970-01-01T00:00:01.007Z","kind":"syst","requested":2,"current":0,"kind_number":8})"
        "\n"
        R"({"version":1,"received":"1969-12-31T23:59:59.999Z","kind":"pcau","path":"/p","process":"vi","user":"bob",)"
        R"("decision":2,"class":5,"kind_number":4,"class_word":"home"})"
        "\n");
}

// Agents write what programs have chosen, and people read it in terminals.
TEST_F(record_output, keeps_what_a_terminal_takes_for_a_command_out_of_both_forms)
{
    for (const form as : {form::text, form::json}) {
        fs::remove(name);
        open(as).write(agent::untp_event{0, "/\x1B[2J\u009B2J\x9B\x7F\n", "p", 0, 0}, {});
        const std::string written = content();
        EXPECT_EQ(written.find_first_of("\x1B\x9B\x7F\xC2"), written.npos) << written;
        EXPECT_EQ(std::ranges::count(written, '\n'), 1) << written;
    }
}

} // namespace
