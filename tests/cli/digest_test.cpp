#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/cli/commands.h"

using namespace cli_test;

namespace {

TEST(digest, goes_on_after_a_file_that_cannot_be_read)
{
    const temporary_directory files;
    const std::string good = files.write("good", "");
    const std::string fifo = files / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string missing = files / "missing";

    for (const bool json : {false, true}) {
        const outcome got = sorvanic({"digest", json ? "--json" : "--", missing, files.path(), fifo, good});
        EXPECT_EQ(got.status, 1);
        EXPECT_EQ(got.err, "sorvanic digest: " + missing + ": No such file or directory\n" +
                               "sorvanic digest: " + files.path() + ": Is a directory\n" +
                               "sorvanic digest: " + fifo + ": Not a regular file\n");
        expect_in(got.out, {"5E65753B"});
    }
}

TEST(digest, gives_every_file_under_its_own_name_as_json)
{
    const temporary_directory files;
    const std::string quoted = files.write("a \"quoted\"\nname", "");
    const std::string other = files.write("other", "x");
    const outcome got = sorvanic({"digest", "--json", quoted, other});
    ASSERT_EQ(got.status, 0) << got.err;
    const auto array = nlohmann::json::parse(got.out).at("programs");
    ASSERT_EQ(array.size(), 2U);
    EXPECT_EQ(array[0], nlohmann::json({{"file", quoted},
                                        {"md5", "d41d8cd98f00b204e9800998ecf8427e"},
                                        {"key", "0x3b75655e"},
                                        {"key_text", "5E65753B"}}));
    EXPECT_EQ(array[1]["file"], other);

    const std::string not_utf8 = files.write("latin \xe4", "");
    const auto shown = nlohmann::json::parse(sorvanic({"digest", "--json", not_utf8}).out);
    EXPECT_EQ(shown["version"], 1);
    EXPECT_TRUE(shown["programs"][0]["file"].get<std::string>().ends_with("latin \uFFFD"));
    EXPECT_TRUE(shown["programs"][0]["file_hex"].get<std::string>().ends_with("20e4"));
}

TEST(digest, shows_the_key_text_and_the_file_name_as_given)
{
    const temporary_directory files;
    for (const char* name : {"[a,b]", "{}", "%%", "--json", "-"}) {
        files.write(name, "");
        const outcome got = run({"sh", "-c", "cd \"$1\" && exec \"$2\" digest -- \"$3\"", "sh", files.path(),
                                 SORVANIC_PROGRAM, name});
        EXPECT_EQ(got.status, 0) << got.err;
        EXPECT_EQ(got.out,
                  std::string("d41d8cd98f00b204e9800998ecf8427e  0x3b75655e  5E65753B  ") + name + "\n");
    }
}

TEST(digest, reports_a_full_disk)
{
    const outcome got = sorvanic({"digest", "/bin/sh"}, "/dev/full");
    EXPECT_EQ(got.status, 125);
    expect_in(got.err, {"No space left on device"});
}

} // namespace
