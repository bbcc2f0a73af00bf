#include <gtest/gtest.h>

#include <filesystem>

#include "source/access_words.h"
#include "source/packages.h"
#include "source/validate.h"
#include "tests/temporary_directory.h"

// What a policy.toml stands for, and what is said about it.

namespace source {

namespace {

namespace fs = std::filesystem;

class document : public testing::Test {
protected:
    document()
    {
        fs::create_directories(files_ / "www/static");
        fs::create_directory_symlink("www", files_ / "link");
        program("tool", "#!/bin/sh\n");
        program("other", "an editor");
        fs::create_symlink("other", files_ / "ed");
    }

    void program(const std::string& name, const std::string& content)
    {
        fs::permissions(files_.write(name, content), fs::perms::owner_all);
    }

    /// Compiles `text`, in which "@" is the test's directory.
    policy compiled(std::string text)
    {
        found_ = {};
        policy loaded = load_policy(files_.write("policy.toml", whole(std::move(text))), found_);
        if (!found_.failed())
            encode(loaded, found_);
        return loaded;
    }

    std::string whole(std::string text) const
    {
        for (auto at = text.find('@'); at != std::string::npos; at = text.find('@', at))
            text.replace(at, 1, std::string(files_ / "").substr(0, std::string(files_ / "").size() - 1));
        return text;
    }

    std::string lines(const policy& of, policy_table table) const
    {
        std::string all;
        for (const word& line : of.of(table).lines)
            all += line.value + "\n";
        return all;
    }

    std::string told() const
    {
        std::string text;
        for (const finding& one : found_.all())
            text += rendered(one);
        return text;
    }

    temporary_directory files_;
    findings found_;
};

TEST_F(document, says_what_the_tables_then_hold)
{
    const struct {
        const char* text;
        policy_table table;
        const char* lines;
    } cases[] = {
        {"", policy_table::statlabel, "3:enforce\n"},
        {"", policy_table::modllabel, "0000\n"},
        {"install = true", policy_table::installlabel, "2\n"},
        {"records = ['refusals']", policy_table::auditlabel, "2:1\n3:1\n"},
        {"records = ['reloads', 'accesses', 'refusals']", policy_table::auditlabel,
         "2:1\n3:1\n2:2\n3:2\n5:2\n"},
        {"[programs]\nallow = 'digest:d41d8cd98f00b204e9800998ecf8427e'", policy_table::whitelist,
         "5E65753B\n"},
        {"[programs]\nallow = ['digest:5E65753B', 'digest:01020304']", policy_table::modllabel, "2000\n"},
        {"[programs]\ntrust = ['digest:5E65753B', 'digest:5e65753b']", policy_table::supertrustfile,
         "5E65753B\n"},
        {"[programs]\ndeny = 'digest:5E65753B'", policy_table::blacklist, "5E65753B\n"},
        {"[programs]\nfree = '@/link/'", policy_table::workdir, "@/www\n"},
        {"control = ['programs']\n[[files]]\npath = '@/www'\nuser.bin = 'read'", policy_table::modllabel,
         "2000\n"},
        {"[[files]]\npath = '@/link'\nuser.bin = 'read'", policy_table::dirctl, "@/www\n"},
        {"[[files]]\npath = '@/www'\nuser.root = 'edit'\nuser.bin = ['read', 'list']", policy_table::dac,
         "@/www:SYSTEM:271\n@/www:bin:4\n"},
        // The longer path first, and what is for every program last.
        {"[[files]]\npath = '@/www'\nprogram.'*' = 'read'\nprogram.vi = 'edit'\n"
         "[[files]]\npath = '@/www/static'\nprogram.'*' = 'none'",
         policy_table::appevp, "@/www/static:*:0\n@/www:vi:271\n@/www:*:4\n"},
        // By the name it is started by, and that of the file that the link leads to.
        {"[[files]]\npath = '@/www'\nprogram.'@/ed' = ['read', 'write']", policy_table::appevp,
         "@/www:ed:14\n@/www:other:14\n"},
        {"[protect]\nprograms = ['/usr/sbin/cron', 'nginx']", policy_table::ptpylist, "cron\nnginx\n"},
        {"[login]\nfirst_password = 'bin'", policy_table::platuser, "bin\n"},
        {"[labels.user]\nbin = { confidentiality = 3, integrity = 1, categories = [1, 2] }",
         policy_table::sublabel, "bin:0:3:1:1,2,0,0,0,0,0,0\n"},
        {"[labels.path]\n'@/www' = { confidentiality = 1 }\n'@/www/static' = { integrity = 1 }",
         policy_table::objlabel, "@/www/static:0:0:1:0,0,0,0,0,0,0,0\n@/www:0:1:0:0,0,0,0,0,0,0,0\n"},
        {"[tables]\npriv = ['/srv/:bin:4']", policy_table::priv, "/srv/:bin:4\n"},
    };
    for (const auto& each : cases) {
        const policy loaded = compiled(std::string("mode = 'enforce'\n") + each.text);
        EXPECT_EQ(found_.count(severity::error), 0U) << told();
        EXPECT_EQ(lines(loaded, each.table), whole(each.lines)) << each.text;
    }
}

TEST_F(document, is_refused_with_the_place_and_the_remedy)
{
    const struct {
        const char* text;
        const char* told;
    } cases[] = {
        {"mode = 'enforce", "policy.toml:1:16: "},
        {"mode = 'enforc'", "policy.toml:1:8: mode has no \"enforc\"; did you mean \"enforce\"?\n"
                            "  1 | mode = 'enforc'\n    |        ^\n"},
        {"", "policy.toml: no mode; write mode = \"observe\""},
        {"mode = 3", "policy.toml:1:8: \"off\", \"observe\" or \"enforce\" is expected here"},
        {"[program]\nallow = []", "1:2: unknown key \"program\"; did you mean \"programs\"?"},
        {"[programs]\nalow = []", "2:1: unknown key \"alow\" in [programs]; did you mean \"allow\"?"},
        {"[programs]\nallow = [3]", "2:10: a text in quotes is expected here"},
        {"[programs]\nallow = ['ls']", "\"ls\" is no program; write an absolute path"},
        {"[programs]\nallow = ['@/gone']", "gone\": there is no such file"},
        {"[programs]\nallow = ['@/*.so']", "no program matches"},
        {"[programs]\nallow = ['@/www']", "holds no program; \"free\" is for what is going to be there"},
        {"[programs]\nallow = ['package:no-such']", "no package \"no-such\" is installed"},
        {"[programs]\nallow = ['digest:12']", "a digest has 32 hexadecimal digits"},
        {"[programs]\nallow = ['digest:00000000']", "that of every file that cannot be read"},
        {"[programs]\nfree = ['@/www/*']", "is a pattern"},
        {"[programs]\nfree = ['/']", "cannot be meant as a whole"},
        {"[files]\npath = '/srv'", "write [[files]]"},
        {"[[files]]\nuser.bin = 'read'", "needs its path"},
        {"[[files]]\npath = '@/www'\nuser.bin = 'reed'", "\"reed\" is no access; did you mean \"read\"?"},
        {"[[files]]\npath = '@/www'\nuser.bin = 'rename'", "nothing is renamed in a controlled directory"},
        {"[[files]]\npath = '@/www'\nuser.bin = 'write'", "\"write\" would also grant \"read\""},
        {"[[files]]\npath = '@/www'\nuser.bin = ['read', 'delete']",
         "\"delete\" would also grant \"create\""},
        {"[[files]]\npath = '@/www'\nuser.bin = ['none', 'read']", "\"none\" stands alone"},
        {"[[files]]\npath = '@/www'\nuser.'*' = 'read'", "write a rule for the program \"*\""},
        {"[[files]]\npath = '@/www'\nprogram.'@/gone' = 'read'", "there is no such program"},
        {"[[files]]\npath = '@/www'\nprogram.'@/ed' = 'read'\nprogram.other = 'edit'",
         "say different things"},
        {"[[files]]\npath = '@/www'\n[[files]]\npath = '@/link'", "a second section for"},
        {"[protect]\nprograms = ['ng*']", "names no program"},
        {"[labels.user]\nbin = { confidentiality = 65536 }", "a number from 0 to 65535 is expected"},
        {"mode = 'off'\n[tables]\ndac = ['/srv:bin:rw']", "3:8: \"rw\" is no mask"},
        {"[tables]\nwhitlist = []", "the nearest is whitelist"},
        {"[[files]]\npath = '@/www'\nuser.bin = ['read', 'write', 'execute']", "would also grant \"create\""},
        {"include = 'gone.toml'", "no file is called \"gone.toml\""},
    };
    for (const auto& each : cases) {
        compiled(each.text);
        EXPECT_TRUE(found_.failed()) << each.text;
        EXPECT_NE(told().find(each.told), std::string::npos) << each.text << "\n" << told();
    }
}

TEST_F(document, tells_what_is_not_as_it_seems)
{
    const struct {
        const char* text;
        const char* told;
    } cases[] = {
        {"[programs]\nallow = ['@/ed']", "/ed\" is "},
        {"[programs]\nallow = ['@/tool']", "runs with /bin/sh, which is not listed"},
        {"[programs]\nallow = ['@/tool']\ndeny = ['@/tool']", "is denied, too, and that decides"},
        {"[programs]\nallow = ['/etc/passwd']", "is not executable"},
        {"control = ['programs']", "programs are controlled, and none is allowed"},
        {"control = ['files']", "files are controlled, but no directory is listed"},
        {"control = []\n[programs]\nallow = ['@/other']",
         "programs are listed, but control of programs is off"},
        {"[[files]]\npath = '@/gone'\nuser.bin = 'read'", "gone\" does not exist"},
        {"[[files]]\npath = '@/www'", "nobody may do anything below"},
        {"[[files]]\npath = '@/www'\nuser.nobody-at-all = 'read'", "this machine has no user"},
        {"[protect]\nprograms = ['/usr/sbin/cron']", "the path does not count"},
        {"[tables]\ndac = ['/srv/nowhere:bin:4']", "counts for nothing"},
        {"[tables]\nappevp = ['/srv:*:4', '/srv/www:vi:6']",
         "is never asked: \"/srv:*:4\" comes first (line 3)"},
        {"include = 'site.d/*.toml'", "no file is called"},
    };
    for (const auto& each : cases) {
        const policy loaded = compiled(std::string("mode = 'enforce'\n") + each.text);
        EXPECT_FALSE(found_.failed()) << told();
        find_surprises(loaded, found_);
        EXPECT_NE(told().find(each.told), std::string::npos) << each.text << "\n" << told();
    }
}

TEST_F(document, includes_files_beside_it_once)
{
    files_.write("site.d/a.toml", "[protect]\nprograms = ['a']\n");
    files_.write("site.d/b.toml", "[protect]\nprograms = ['b']\n");
    const policy loaded =
        compiled("mode = 'enforce'\ninclude = ['site.d/*.toml']\n[protect]\nprograms = ['z']\n");
    EXPECT_EQ(lines(loaded, policy_table::ptpylist), "z\na\nb\n") << told();
    files_.write("site.d/b.toml", "mode = 'off'\ninclude = 'c.toml'\n");
    compiled("mode = 'enforce'\ninclude = ['site.d/*.toml']");
    EXPECT_NE(told().find("b.toml:1:8: a second mode"), std::string::npos) << told();
    EXPECT_NE(told().find("b.toml:2:11: an included file includes others"), std::string::npos) << told();
}

TEST(access_words, are_the_fewest_that_make_a_mask)
{
    const std::pair<std::uint32_t, const char*> cases[] = {
        {0, "none"},   {4, "read"}, {5, "read, execute"}, {14, "read, write"}, {15, "read, write, create"},
        {271, "edit"}, {6, "6"}};
    for (const auto& [mask, words] : cases)
        EXPECT_EQ(words_of(mask), words);
}

TEST(packages, have_their_files_with_the_digests_that_dpkg_knows)
{
    const temporary_directory dpkg;
    dpkg.write("status", "Package: gone\nStatus: deinstall ok config-files\nVersion: 1\n\n"
                         "Package: tool\nStatus: install ok installed\nVersion: 2-1\n");
    dpkg.write("info/gone.list", "/etc/gone\n");
    dpkg.write("info/tool:amd64.list", "/.\n/usr/bin/tool\n/usr/bin/link\n");
    dpkg.write("info/tool:amd64.md5sums", "d41d8cd98f00b204e9800998ecf8427e  usr/bin/tool\n");
    const auto found = find_package("tool", dpkg / "");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->version, "2-1");
    ASSERT_EQ(found->files.size(), 3U);
    EXPECT_EQ(found->files[1].md5, "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(found->files[2].md5, "");
    for (const char* name : {"gone", "none", "", "../info/tool"})
        EXPECT_FALSE(find_package(name, dpkg / "")) << name;
}

} // namespace

} // namespace source
