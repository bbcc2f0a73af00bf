#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <span>

#include "tests/cli/commands.h"

using namespace cli_test;

namespace {

/// A source, a destination, and the command between them.
class PolicyBuild : public testing::Test {
protected:
    void source(const std::string& name, const std::string& text) { files_.write("src/" + name, text); }
    std::string source_path(const std::string& name) const { return files_ / ("src/" + name); }
    void clear_source() const { std::filesystem::remove_all(files_ / "src"); }

    outcome build(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"policy", "build", files_ / "src", files_ / "dst"});
        return sorvanic(options);
    }

    std::string built(const std::string& name) const { return files_.read("dst/" + name); }

    /// But for what the build says of itself.
    std::set<std::string> names_in_destination() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(files_ / "dst"))
            if (entry.path().filename() != "manifest.json" && entry.path().filename() != ".previous")
                names.insert(entry.path().filename());
        return names;
    }

    /// Permissions below the destination.
    unsigned mode(const std::string& name) const
    {
        return static_cast<unsigned>(std::filesystem::status(files_ / ("dst/" + name)).permissions());
    }

    static void expect_error(const outcome& got, std::vector<std::string> told)
    {
        EXPECT_EQ(got.status, 1);
        told.emplace_back("nothing was written");
        expect_in(got.err, told);
    }

    temporary_directory files_;
};

/// That many different key texts, one a line.
std::string keys(unsigned count)
{
    std::string text;
    for (unsigned i = 0; i < count; ++i)
        text += fmt::format("{:08X}\n", i);
    return text;
}

TEST_F(PolicyBuild, EveryWrongLineIsToldWithFileLineAndReason)
{
    struct wrong {
        const char* file;
        std::string text;
        int line;
        const char* reason;
    };
    const std::string missing = files_ / "missing";
    const wrong cases[] = {
        {"whitelist", "# ok\n5E65753\n", 2, "neither 8 hexadecimal digits of key text nor an absolute path"},
        {"whitelist", "5E65753B1", 1, "neither"},
        {"whitelist", "5E65753G", 1, "neither"},
        {"whitelist", "-E65753B", 1, "neither"},
        {"whitelist", " 5E65753B", 1, "neither"},
        {"blacklist", "\n\n0x3b75655e\n", 3, "write 5E65753B"},
        {"supertrustfile", missing + "\n", 1, "missing: No such file or directory"},
        {"supertrustfile", "5E65753B\n/\n", 2, "/: Is a directory"},
        {"whitelist", std::string("5E65753B\n\x01\0", 11), 2, "a zero byte"},
        {"platuser", "a\nb\r\n", 2, "a carriage return"},
        {"workdir", "/opt\nopt\n", 2, "not an absolute path"},
        {"workdir", "/opt/\n", 1, "ends in /"},
        {"dirctl", "/\n", 1, "the root directory"},
        {"dirctl", "/a/../b\n", 1, "would match nothing"},
        {"dirctl", "/a \n", 1, "ends in a blank"},
        {"dirctl", "/a\n # b\n", 2, "first column"},
        {"workdir", "/" + std::string(511, 'x') + "\n", 1, "512 characters"},
        {"ptpylist", std::string(512, 'x') + "\n", 1, "512 characters"},
        {"dac", "/d:alice:4\n/" + std::string(511, 'x') + "\n", 2, "512 characters"},
        {"statlabel", "enforce\n", 1, "number from 0 to 2147483647"},
        {"statlabel", "2147483648\n", 1, "number from 0 to 2147483647"},
        {"statlabel", "-1\n", 1, "number from 0 to 2147483647"},
        {"statlabel", "3\n# two\n2\n", 3, "reads only the first"},
        {"installlabel", "# nothing\n", 1, "no value"},
        {"auditlabel", "2:1\n7:1\n", 2, "an index from 0 to 6"},
        {"auditlabel", "2\n", 1, "no value"},
        {"auditlabel", "2:\n", 1, "no number"},
        {"modllabel", "202\n", 1, "fewer than 4 characters"},
        {"platuser", ":x\n", 1, "no user"},
        {"sublabel", "alice:0:3:1:1,2\n", 1, "5 fields between colons"},
        {"sublabel", "a:0:3:1,1:0,0,0,0,0,0,0\n", 1, "as in alice:"},
        {"sublabel", "a:0:1:1:0,0,0,0,0,0,0,0\na:0:65536:1:0,0,0,0,0,0,0,0\n", 2, "\"65536\" is no confid"},
        {"sublabel", "a:0:1:1:0,0,0,0,0,0,0,256\n", 1, "\"256\" is no category; write a number from 0"},
        {"sublabel", ":0:1:1:0,0,0,0,0,0,0,0\n", 1, "no user"},
        {"objlabel", "/d/:0:1:1:0,0,0,0,0,0,0,0\n", 1, "ends in /"},
        {"objlabel", "/:0:1:1:0,0,0,0,0,0,0,0\n", 1, "leave the path empty"},
        {"objlabel", "/d:0:1:x:0,0,0,0,0,0,0,0\n", 1, "\"x\" is no integrity"},
        {"objlabel", "/" + std::string(511, 'x') + "\n", 1, "512 characters"},
        {"dac", "/d:alice\n", 1, "write PATH:USER:MASK"},
        {"dac", "/d::4\n", 1, "no user"},
        {"dac", "d:alice:4\n", 1, "not an absolute path"},
        {"priv", "/d:alice:rw\n", 1, "\"rw\" is no mask; write the sum of"},
        {"priv", "/d:alice:16\n", 1, "no mask"},
        {"appevp", "/d:/usr/bin/a-program-of-some-length:4\n", 1, "write a-program-of-so"},
        {"appevp", "/d:/usr/bin/:4\n", 1, "names no program"},
        {"appevp", "/d:" + std::string(512, 'x') + ":4\n", 1, "a program of 512 characters"},
        {"appevp", "/" + std::string(511, 'x') + ":*:4\n", 1, "a path of 512 characters"},
    };
    for (const wrong& each : cases) {
        clear_source();
        source(each.file, each.text);
        expect_error(build(), {fmt::format("{}:{}: ", source_path(each.file), each.line), each.reason});
    }
}

TEST_F(PolicyBuild, AllErrorsOfAllFilesAreToldAtOnce)
{
    source("whitelist", "x\n5E65753B\ny\n");
    source("workdir", "z\n");
    source("statlabl", "3\n");
    expect_error(build(), {source_path("whitelist") + ":1: ", source_path("whitelist") + ":3: ",
                           source_path("workdir") + ":1: ", source_path("statlabl") + ": ",
                           "the nearest is statlabel"});
}

TEST_F(PolicyBuild, WhatCannotBeBuiltLeavesTheDestinationAsItWas)
{
    source("whitelist", "5E65753B\n");
    source("blacklist", "wrong\n");
    EXPECT_EQ(build().status, 1);
    EXPECT_FALSE(std::filesystem::exists(files_ / "dst"));

    files_.write("dst/whitelist", "former");
    EXPECT_EQ(build().status, 1);
    EXPECT_EQ(built("whitelist"), "former");
    EXPECT_EQ(names_in_destination(), std::set<std::string>{"whitelist"});

    // Neither when it is the last file that cannot be replaced.
    std::filesystem::rename(source_path("blacklist"), source_path("workdir"));
    source("workdir", "/opt\n");
    std::filesystem::create_directories(files_ / "dst/workdir");
    expect_in(build().err, {files_ / "dst/workdir" + ": Is a directory"});
    EXPECT_EQ(built("whitelist"), "former");
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"whitelist", "workdir"}));

    expect_error(sorvanic({"policy", "build", files_ / "src", files_ / "src/../src"}),
                 {"the same directory"});
    EXPECT_EQ(files_.read("src/whitelist"), "5E65753B\n");
}

TEST_F(PolicyBuild, SourcesThatAreNoFilesAreToldAndNotWaitedFor)
{
    std::filesystem::create_directories(source_path("dac"));
    ASSERT_EQ(mkfifo(source_path("priv").c_str(), 0600), 0);
    std::filesystem::create_symlink("missing", source_path("appevp"));
    expect_error(build(),
                 {source_path("dac") + ": Is a directory", source_path("priv") + ": Not a regular file",
                  source_path("appevp") + ": No such file or directory"});
    clear_source();
    expect_error(build(), {files_ / "src" + ": No such file or directory"});
    std::filesystem::create_directories(files_ / "src");
    expect_error(build(), {"holds no policy file"});
}

TEST_F(PolicyBuild, KeyTextAndPathOfOneProgramGiveOneRecord)
{
    const std::string program = files_.write("a program", "");
    source("whitelist", "# the empty file, three times\n5e65753b\n" + program + " \t\n5E65753B\n01020304");
    expect_in(build().out, {"2 programs (2 listed again)"});
    EXPECT_EQ(built("whitelist"), std::string("\x5e\x65\x75\x3b\x01\x02\x03\x04"));
}

TEST_F(PolicyBuild, LimitsAreThoseOfTheEngine)
{
    struct limit {
        const char* file;
        unsigned most;
    };
    for (const limit& each : {limit{"whitelist", 65536}, {"supertrustfile", 8192}, {"blacklist", 4096}}) {
        clear_source();
        source(each.file, keys(each.most));
        ASSERT_EQ(build().status, 0) << each.file;
        EXPECT_EQ(built(each.file).size(), 4U * each.most);
        source(each.file, keys(each.most + 1) + "wrong\n");
        expect_error(build(), {fmt::format(":{}: more than {} programs", each.most + 1, each.most),
                               fmt::format(":{}: \"wrong\"", each.most + 2)});
    }
    for (const char* file : {"workdir", "dirctl", "ptpylist"}) {
        clear_source();
        std::string lines = "# comments do not count\n";
        for (int i = 0; i < 8193; ++i)
            lines += fmt::format("/d{}\n", i);
        source(file, lines);
        ASSERT_EQ(build().status, 0) << file;
        source(file, lines + "/more\n");
        expect_error(build(), {":8195: more than 8193 entries"});
    }
}

TEST_F(PolicyBuild, StoredTextHoldsTheLinesThatCount)
{
    const std::string longest_path = "/" + std::string(510, 'x');
    std::string rules;
    for (int i = 0; i < 500; ++i)
        rules += fmt::format("/a/path:user{}:6\n", i);
    rules += "/" + std::string(500, 'y') + ":u:15:note\n";

    const struct {
        const char* file;
        std::string text, stored;
    } cases[] = {
        {"workdir", "# comment\n\n   \n/opt/my tools\n" + longest_path,
         "/opt/my tools\n" + longest_path + "\n"},
        {"dirctl", longest_path + "\n", longest_path + "\n"},
        {"statlabel", "# mode\n3:enforce\n", "3:enforce\n"},
        {"modllabel", "2x2y\n", "2x2y\n"},
        {"auditlabel", "2:1\n3:2:why\n", "2:1\n3:2:why\n"},
        {"dac", "# " + std::string(5000, 'z') + "\n" + rules, rules},
        {"appevp", ":*:4\n/srv:/usr/bin/vi:783\n", ":*:4\n/srv:/usr/bin/vi:783\n"},
        {"priv", "/srv/:alice:6\n/home/u/.:alice:4\n/:root:0\n",
         "/srv/:alice:6\n/home/u/.:alice:4\n/:root:0\n"},
        {"objlabel", ":0:65535:0:0,0,0,0,0,0,0,255\n", ":0:65535:0:0,0,0,0,0,0,0,255\n"},
        {"platuser", "", ""},
    };
    for (const auto& each : cases)
        source(each.file, each.text);
    const outcome got = build();
    ASSERT_EQ(got.status, 0) << got.err;
    // All but the first in a form that another decoder than the engine's understands, too.
    EXPECT_EQ(built(cases[0].file), cases[0].stored);
    for (const auto& each : std::span(cases).subspan(1))
        EXPECT_EQ(run({"base64", "-d", files_ / "dst/" + each.file}).out, each.stored) << each.file;
    // The engine decodes in pieces: a line end or padding inside the run would lose what follows.
    const std::string encoded = built("dac");
    EXPECT_GE(encoded.find_first_of("=\n"), encoded.size() - 2);
}

TEST_F(PolicyBuild, AReaderKeepsTheOldFileAndTheNewOneKeepsItsMode)
{
    files_.write("dst/whitelist", "former");
    std::filesystem::permissions(files_ / "dst/whitelist", std::filesystem::perms{0640});
    std::filesystem::create_hard_link(files_ / "dst/whitelist", files_ / "reader");
    source("whitelist", "5E65753B\n");
    source("workdir", "/opt\n");
    ASSERT_EQ(build().status, 0);
    EXPECT_EQ(files_.read("reader"), "former"); // not written in place
    EXPECT_EQ(built("whitelist"), "\x5e\x65\x75\x3b");
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"whitelist", "workdir"}));
    EXPECT_EQ(mode("whitelist"), 0640U);
    EXPECT_EQ(mode("workdir"), 0600U);
}

TEST_F(PolicyBuild, removes_a_table_whose_source_is_gone_unless_told_to_keep_it)
{
    source("whitelist", "5E65753B\n");
    ASSERT_EQ(build().status, 0);
    EXPECT_EQ(mode(""), 0700U);

    files_.write("dst/dac", "former");
    files_.write("dst/notes", "not a policy file");
    expect_in(build({"--keep"}).out, {"left as they were: dac\n"});
    EXPECT_EQ(built("dac"), "former");
    expect_in(build().out, {"so removed: dac\n"});
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"notes", "whitelist"}));
}

TEST_F(PolicyBuild, APolicyThatChecksNothingIsToldSo)
{
    source("whitelist", "5E65753B\n");
    source("statlabel", "3\n");
    expect_in(build().err, {"control of programs is off: every program runs"});
    source("modllabel", "2000\n");
    EXPECT_EQ(build().err.find("every program runs"), std::string::npos);
}

} // namespace
