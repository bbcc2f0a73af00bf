#include <gtest/gtest.h>

#include <filesystem>

#include "source/build.h"
#include "source/difference.h"
#include "source/manifest.h"
#include "source/validate.h"
#include "tests/temporary_directory.h"

// One loader and one validator for every form of a policy, and what a build leaves behind.

namespace source {

namespace {

namespace fs = std::filesystem;

struct forms : testing::Test {
    policy load(const std::string& name)
    {
        found = {};
        policy loaded = load_policy(files / name, found);
        find_surprises(loaded, found);
        return loaded;
    }

    std::string told() const
    {
        std::string text;
        for (const finding& one : found.all())
            text += rendered(one);
        return text;
    }

    void build(const std::string& text)
    {
        found = {};
        write_policy(load_policy(files.write("policy.toml", text), found), files / "built", found);
        ASSERT_FALSE(found.failed()) << told();
    }

    temporary_directory files;
    findings found;
};

TEST_F(forms, text_is_told_from_what_the_engine_reads)
{
    files.write("text/whitelist", "5E65753B\n");
    files.write("text/statlabel", "3\n");
    files.write("text/modllabel", "2000\n");
    EXPECT_EQ(load("text").kind, policy_kind::texts);
    // A wrong line makes it no less a text, which the engine would take for an empty policy.
    files.write("text/statlabel", "enforce\n");
    EXPECT_EQ(load("text").kind, policy_kind::texts);
    EXPECT_TRUE(found.failed());

    build("mode = 'enforce'\n[programs]\nallow = 'digest:5E65753B'\n");
    const policy built = load("built");
    EXPECT_EQ(built.kind, policy_kind::built);
    EXPECT_EQ(difference(load("policy.toml"), built), std::vector<std::string>());
    EXPECT_EQ(in_force(built), "enforcing: programs 1, files not controlled; signals not protected");
}

TEST_F(forms, of_tables_tell_what_the_engine_accepts_without_a_word)
{
    fs::create_directories(files / "real");
    fs::create_directory_symlink("real", files / "link");
    const std::string link = files / "link";
    const struct {
        const char* file;
        std::string text;
        const char* told;
    } cases[] = {
        {"statlabel", "0\n", "mode 0 enforces, but does not protect the product itself"},
        {"statlabel", "1:off\n", "the policy is off"},
        {"modllabel", "2000\n", "programs are controlled, and none is allowed"},
        {"dirctl", link + "\n", "is a link to"},
        {"dirctl", "/srv/*\n", "patterns have no meaning here"},
        {"workdir", "/no/such # tools\n", "the comment is a part of the entry"},
        {"dac", "/srv:*:4\n", "the user \"*\" is nobody"},
        {"dac", "/srv:bin:4\n/srv:bin:4\n", "is there twice"},
        {"appevp", "/srv:*:4\n/srv/www:vi:6\n", "is never asked"},
        {"platuser", "no-such-user\n", "this machine has no user"},
        {"whitelist", "00000000\n", "that of every file that cannot be read"},
        {"ptpylist", "/usr/sbin/cron\n", "protects by its name only"},
        {"statlabel",
         "\xEF\xBB\xBF"
         "3\n",
         "a byte order mark"},
        {"dac~", "/srv:bin:4\n", "left by an editor"},
    };
    for (const auto& each : cases) {
        fs::remove_all(files / "text");
        files.write("text/installlabel", "# text\n2\n");
        files.write(std::string("text/") + each.file, each.text);
        load("text");
        EXPECT_NE(told().find(each.told), std::string::npos) << each.file << "\n" << told();
    }
}

TEST_F(forms, that_are_built_tell_what_the_engine_cannot_read)
{
    build("mode = 'enforce'\n[programs]\nallow = 'digest:5E65753B'\n");
    load("built");
    const std::size_t before = found.count(severity::warning);
    files.write("built/whitelist", "cut");
    files.write("built/modllabel", "!");
    load("built");
    EXPECT_GE(found.count(severity::warning), before + 2) << told();
    EXPECT_NE(told().find("ignores this whole list"), std::string::npos) << told();
    EXPECT_NE(told().find("nothing can be decoded"), std::string::npos) << told();
}

TEST_F(forms, keep_the_policy_before_the_last_change)
{
    EXPECT_FALSE(restore_previous(files / "built"));
    build("mode = 'enforce'\n[programs]\nallow = 'digest:5E65753B'\n");
    build("mode = 'enforce'\n[programs]\nallow = 'digest:5E65753B'\n");
    EXPECT_EQ(read_manifest(files / "built")->generation, 1U);
    const policy first = load("built");
    build("mode = 'observe'\n[programs]\nfree = '/opt'\n");
    EXPECT_EQ(read_manifest(files / "built")->generation, 2U);
    const policy second = load("built");
    EXPECT_EQ(counted_difference(first, second),
              "1 allowed program removed; 1 free directory added; mode now observe");

    for (const policy* expected : {&first, &second}) {
        EXPECT_TRUE(restore_previous(files / "built"));
        EXPECT_EQ(counted_difference(*expected, load("built")), "");
    }
}

} // namespace

} // namespace source
