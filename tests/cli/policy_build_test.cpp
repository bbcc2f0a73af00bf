#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "tests/cli/commands.h"

using namespace cli_test;

namespace {

/// A source, a destination, and the command between them.
class PolicyBuild : public testing::Test {
protected:
    void source(std::string_view name, std::string_view text)
    {
        files_.write("src/" + std::string(name), text);
    }
    std::string source_path(std::string_view name) const { return files_.path("src/" + std::string(name)); }

    outcome build(std::vector<std::string> options = {})
    {
        std::vector<std::string> arguments{"policy", "build", files_.path("src"), files_.path("dst")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return sorvanic(arguments);
    }

    std::string built(std::string_view name) const { return files_.read("dst/" + std::string(name)); }

    /// What another decoder than the engine's makes of a built file.
    std::string decoded(std::string_view name) const
    {
        return run({"base64", "-d", files_.path("dst/" + std::string(name))}).out;
    }

    std::set<std::string> names_in_destination() const
    {
        std::set<std::string> names;
        if (std::filesystem::exists(files_.path("dst")))
            for (const auto& entry : std::filesystem::directory_iterator(files_.path("dst")))
                names.insert(entry.path().filename());
        return names;
    }

    void expect_error(const outcome& got, const std::string& told)
    {
        EXPECT_EQ(got.status, 1);
        EXPECT_NE(got.err.find(told), std::string::npos) << "'" << told << "' is not in: " << got.err;
        EXPECT_NE(got.err.find("nothing was written"), std::string::npos) << got.err;
    }

    directory files_;
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
    const std::string missing = files_.path("missing");
    const wrong cases[] = {
        {"whitelist", "# ok\n5E65753\n", 2, "neither 8 hexadecimal digits of key text nor an absolute path"},
        {"whitelist", "5E65753B1", 1, "neither"},
        {"whitelist", "5E65753G", 1, "neither"},
        {"whitelist", "-E65753B", 1, "neither"},
        {"whitelist", " 5E65753B", 1, "neither"},
        {"blacklist", "bin/sh\n", 1, "neither"},
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
        {"priv", "d:alice:4\n", 1, "not an absolute path"},
        {"priv", "/d:alice:rw\n", 1, "\"rw\" is no mask; write the sum of"},
        {"priv", "/d:alice:16\n", 1, "no mask"},
        {"appevp", "/d:/usr/bin/a-program-of-some-length:4\n", 1, "write a-program-of-so"},
        {"appevp", "/d:/usr/bin/:4\n", 1, "names no program"},
        {"appevp", "/d:" + std::string(512, 'x') + ":4\n", 1, "a program of 512 characters"},
        {"appevp", "/" + std::string(511, 'x') + ":*:4\n", 1, "a path of 512 characters"},
    };
    for (const wrong& each : cases) {
        std::filesystem::remove_all(files_.path("src"));
        source(each.file, each.text);
        const outcome got = build();
        expect_error(got, fmt::format("{}:{}: ", source_path(each.file), each.line));
        expect_error(got, each.reason);
    }
}

TEST_F(PolicyBuild, AllErrorsOfAllFilesAreToldAtOnce)
{
    source("whitelist", "x\n5E65753B\ny\n");
    source("workdir", "z\n");
    source("statlabl", "3\n");
    const outcome got = build();
    EXPECT_EQ(got.status, 1);
    for (const std::string& told : {source_path("whitelist") + ":1: ", source_path("whitelist") + ":3: ",
                                    source_path("workdir") + ":1: ", source_path("statlabl") + ": "})
        EXPECT_NE(got.err.find(told), std::string::npos) << "'" << told << "' is not in: " << got.err;
    EXPECT_NE(got.err.find("the nearest is statlabel"), std::string::npos) << got.err;
}

TEST_F(PolicyBuild, OneWrongFileLeavesTheDestinationAsItWas)
{
    source("whitelist", "5E65753B\n");
    source("blacklist", "wrong\n");
    EXPECT_EQ(build().status, 1);
    EXPECT_FALSE(std::filesystem::exists(files_.path("dst")));

    files_.write("dst/whitelist", "former");
    EXPECT_EQ(build({"--prune"}).status, 1);
    EXPECT_EQ(built("whitelist"), "former");
    EXPECT_EQ(names_in_destination(), std::set<std::string>{"whitelist"});
}

TEST_F(PolicyBuild, AFileThatCannotBeReplacedLeavesTheOthersAsTheyWere)
{
    source("whitelist", "5E65753B\n");
    source("workdir", "/opt\n");
    files_.write("dst/whitelist", "former");
    std::filesystem::create_directories(files_.path("dst/workdir"));
    const outcome got = build();
    EXPECT_EQ(got.status, 1);
    EXPECT_NE(got.err.find(files_.path("dst/workdir") + ": Is a directory"), std::string::npos) << got.err;
    EXPECT_EQ(built("whitelist"), "former");
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"whitelist", "workdir"}));
}

TEST_F(PolicyBuild, SourcesThatAreNoFilesAreToldAndNotWaitedFor)
{
    std::filesystem::create_directories(source_path("dac"));
    ASSERT_EQ(mkfifo(source_path("priv").c_str(), 0600), 0);
    std::filesystem::create_symlink("missing", source_path("appevp"));
    const outcome got = build();
    expect_error(got, source_path("dac") + ": Is a directory");
    expect_error(got, source_path("priv") + ": Not a regular file");
    expect_error(got, source_path("appevp") + ": No such file or directory");

    std::filesystem::remove_all(files_.path("src"));
    expect_error(build(), files_.path("src") + ": No such file or directory");
    std::filesystem::create_directories(files_.path("src"));
    expect_error(build({"--prune"}), "holds no policy file");
}

TEST_F(PolicyBuild, ASourceIsNotReplacedByWhatIsBuiltFromIt)
{
    source("whitelist", "5E65753B\n");
    const outcome got = sorvanic({"policy", "build", files_.path("src"), files_.path("src/../src")});
    expect_error(got, "the same directory");
    EXPECT_EQ(files_.read("src/whitelist"), "5E65753B\n");
}

TEST_F(PolicyBuild, KeyTextAndPathOfOneProgramGiveOneRecord)
{
    const std::string program = files_.write("a program", "");
    source("whitelist", "# the empty file, three times\n5e65753b\n" + program + " \t\n5E65753B\n01020304");
    const outcome got = build();
    ASSERT_EQ(got.status, 0) << got.err;
    EXPECT_EQ(built("whitelist"), std::string("\x5e\x65\x75\x3b\x01\x02\x03\x04"));
    EXPECT_NE(got.out.find("2 programs (2 listed again)"), std::string::npos) << got.out;
}

TEST_F(PolicyBuild, LimitsAreThoseOfTheEngine)
{
    struct limit {
        const char* file;
        unsigned most;
    };
    for (const limit& each : {limit{"whitelist", 65536}, {"supertrustfile", 8192}, {"blacklist", 4096}}) {
        std::filesystem::remove_all(files_.path("src"));
        source(each.file, keys(each.most));
        ASSERT_EQ(build().status, 0) << each.file;
        EXPECT_EQ(built(each.file).size(), 4U * each.most);
        source(each.file, keys(each.most + 1) + "wrong\n");
        const outcome got = build();
        expect_error(got, fmt::format(":{}: more than {} programs", each.most + 1, each.most));
        expect_error(got, fmt::format(":{}: \"wrong\"", each.most + 2));
    }
    for (const char* file : {"workdir", "dirctl", "ptpylist"}) {
        std::filesystem::remove_all(files_.path("src"));
        std::string lines;
        for (int i = 0; i < 8193; ++i)
            lines += fmt::format("/d{}\n", i);
        source(file, "# comments do not count\n" + lines);
        ASSERT_EQ(build().status, 0) << file;
        source(file, "# comments do not count\n" + lines + "/more\n");
        expect_error(build(), ":8195: more than 8193 entries");
    }
}

TEST_F(PolicyBuild, StoredTextHoldsTheLinesThatCount)
{
    const std::string longest_path = "/" + std::string(510, 'x');
    std::string rules;
    for (int i = 0; i < 500; ++i)
        rules += fmt::format("/a/path:user{}:6\n", i);
    rules += "/" + std::string(500, 'y') + ":u:15:note\n";

    source("workdir", "# comment\n\n   \n/opt/my tools\n" + longest_path); // no line end
    source("dirctl", longest_path + "\n");
    source("statlabel", "# mode\n3:enforce\n");
    source("modllabel", "2x2y\n");
    source("auditlabel", "2:1\n3:2:why\n");
    source("dac", "# " + std::string(5000, 'z') + "\n" + rules);
    source("appevp", ":*:4\n/srv:/usr/bin/vi:783\n");
    source("priv", "/srv/:alice:6\n/home/u/.:alice:4\n/:root:0\n");
    source("objlabel", ":0:65535:0:0,0,0,0,0,0,0,255\n");
    source("platuser", "");
    const outcome got = build();
    ASSERT_EQ(got.status, 0) << got.err;

    EXPECT_EQ(built("workdir"), "/opt/my tools\n" + longest_path + "\n");
    EXPECT_EQ(decoded("dirctl"), longest_path + "\n");
    EXPECT_EQ(decoded("statlabel"), "3:enforce\n");
    EXPECT_EQ(decoded("modllabel"), "2x2y\n");
    EXPECT_EQ(decoded("auditlabel"), "2:1\n3:2:why\n");
    EXPECT_EQ(decoded("dac"), rules);
    EXPECT_EQ(decoded("appevp"), ":*:4\n/srv:/usr/bin/vi:783\n");
    EXPECT_EQ(decoded("priv"), "/srv/:alice:6\n/home/u/.:alice:4\n/:root:0\n");
    EXPECT_EQ(decoded("objlabel"), ":0:65535:0:0,0,0,0,0,0,0,255\n");
    EXPECT_EQ(built("platuser"), "");
    // The engine decodes in pieces: a line end or padding inside the run would lose what follows.
    const std::string run = built("dac");
    EXPECT_EQ(run.find('\n'), std::string::npos);
    EXPECT_TRUE(run.find('=') >= run.size() - 2) << run.find('=');
}

TEST_F(PolicyBuild, AReaderKeepsTheOldFileAndTheNewOneKeepsItsMode)
{
    files_.write("dst/whitelist", "former");
    std::filesystem::permissions(files_.path("dst/whitelist"), std::filesystem::perms{0640});
    std::filesystem::create_hard_link(files_.path("dst/whitelist"), files_.path("reader"));
    source("whitelist", "5E65753B\n");
    source("workdir", "/opt\n");
    ASSERT_EQ(build().status, 0);
    EXPECT_EQ(files_.read("reader"), "former"); // not written in place
    EXPECT_EQ(built("whitelist"), "\x5e\x65\x75\x3b");
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"whitelist", "workdir"}));

    struct stat facts {};
    ASSERT_EQ(stat(files_.path("dst/whitelist").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640U);
    ASSERT_EQ(stat(files_.path("dst/workdir").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0600U);
}

TEST_F(PolicyBuild, FilesThatTheSourceLacksStayUnlessPruned)
{
    source("whitelist", "5E65753B\n");
    ASSERT_EQ(build().status, 0);
    struct stat facts {};
    ASSERT_EQ(stat(files_.path("dst").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0700U);

    files_.write("dst/dac", "former");
    files_.write("dst/notes", "not a policy file");
    const outcome kept = build();
    ASSERT_EQ(kept.status, 0) << kept.err;
    EXPECT_NE(kept.out.find("left as they were (--prune removes them): dac\n"), std::string::npos)
        << kept.out;
    EXPECT_EQ(built("dac"), "former");

    const outcome pruned = build({"--prune"});
    ASSERT_EQ(pruned.status, 0) << pruned.err;
    EXPECT_NE(pruned.out.find("so removed: dac\n"), std::string::npos) << pruned.out;
    EXPECT_EQ(names_in_destination(), (std::set<std::string>{"notes", "whitelist"}));
}

TEST_F(PolicyBuild, APolicyThatChecksNothingIsToldSo)
{
    source("whitelist", "5E65753B\n");
    source("statlabel", "3\n");
    EXPECT_NE(build().out.find("every program is allowed as long as there is no modllabel"),
              std::string::npos);
    source("modllabel", "2000\n");
    EXPECT_EQ(build().out.find("every program is allowed"), std::string::npos);
}

} // namespace
