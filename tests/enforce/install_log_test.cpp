#include "enforce/install/install_log.h"

#include <sys/stat.h>

#include <string>
#include <utility>

#include "tests/enforce/install_machine.h"

// The writers remember the last path for as long as the program runs: each test has paths of
// its own.

namespace {

void record(install_machine&, std::string path)
{
    EXPECT_EQ(sorvanic_kernel_install_record(nullptr, path.data()), 0);
}

void record_exec(install_machine& m, std::string path)
{
    EXPECT_EQ(sorvanic_write_local_exec_log(m.file("/bin/sh"), path.c_str()), 0);
}

/// The log of executions, without the key that is in each of its lines.
std::string exec_paths()
{
    static const std::string key = "\t" + key_text("/bin/sh");
    std::string text = install_machine::exec_log();
    for (std::size_t at = 0; (at = text.find(key)) != std::string::npos;)
        text.erase(at, key.size());
    return text;
}

const struct {
    void (*record)(install_machine&, std::string path);
    std::string (*text)();
} logs[] = {{record, install_machine::install_log}, {record_exec, exec_paths}};

TEST(install_log, a_temporary_suffix_is_cut_when_it_is_the_last_and_begins_with_a_digit)
{
    const std::pair<const char*, std::string> cases[] = {
        {"/usr/lib/pkg/file;1a2b", "/usr/lib/pkg/file"},
        {"/usr/lib/pkg/file;x9", "/usr/lib/pkg/file;x9"},
        {"/pkg/a;1;x", "/pkg/a;1;x"},
        {"/pkg/b;x;1", "/pkg/b;x"},
        {"/pkg/c;", "/pkg/c;"},
        {"/pkg;9/d", "/pkg"},
        {"/pkg/e;:", "/pkg/e;:"},
        {"/pkg/e;/", "/pkg/e;/"},
    };
    install_machine m;
    std::string expected;
    for (const auto& [path, line] : cases) {
        record(m, path);
        expected += line + "\n";
    }
    EXPECT_EQ(m.install_log(), expected);
}

TEST(install_log, only_a_repetition_of_the_last_path_is_left_out)
{
    install_machine m;
    for (const auto& log : logs) {
        for (const char* path : {"/r/a", "/r/a", "/r/b", "/R/B", "/r/bc", "/r/b", "/r/a"})
            log.record(m, path);
        EXPECT_EQ(log.text(), "/r/a\n/r/b\n/r/bc\n/r/b\n/r/a\n");
    }
    record(m, "/r/a;1");
    EXPECT_TRUE(m.install_log().ends_with("/r/b\n/r/a\n"));
}

TEST(install_log, a_path_longer_than_the_memory_of_the_last_is_written_whole)
{
    const std::string stem = "/" + std::string(1021, 'l'); // with one character more, the memory is full
    const std::string tail(3000, 't');
    install_machine m;
    for (const auto& log : logs) {
        for (const std::string& path :
             {stem + "a" + tail, stem + "b" + tail, stem + "b", stem, stem + "b", stem + "b" + "2"})
            log.record(m, path);
        EXPECT_EQ(log.text(),
                  stem + "a" + tail + "\n" + stem + "b" + tail + "\n" + stem + "\n" + stem + "b\n")
            << "what differs behind the 1023rd character only counts as a repetition";
    }
}

TEST(install_log, remembers_only_lines_that_it_has_written)
{
    install_machine m;
    for (const auto& log : logs) {
        const auto lose = [&](const char* path) {
            platform::fail_call(platform::fault::open, 1);
            log.record(m, path);
            EXPECT_TRUE(platform::fault_fired());
        };
        log.record(m, "/l/a");
        lose("/l/b");
        log.record(m, "/l/b");
        EXPECT_EQ(log.text(), "/l/a\n/l/b\n");
        lose("/l/lost");
        log.record(m, "/l/b");
        EXPECT_EQ(log.text(), "/l/a\n/l/b\n") << "the last path is the one that was written";
    }
}

TEST(install_log, appends_lines_and_gives_a_new_log_mode_600_in_decimal)
{
    install_machine m;
    m.write("/var/host/old", "old line\n");
    platform::mount_directory("/var/log", m.real("/var/host").string());
    platform::mount_directory("/var/log/swinstall.log", m.real("/var/host/old").string());
    const mode_t mask = ::umask(0);
    record(m, "/m/a");
    record_exec(m, "/m/a");
    ::umask(mask);
    EXPECT_EQ(m.read("/var/host/old"), "old line\n/m/a\n");
    struct stat made = {};
    ASSERT_EQ(::stat(m.real("/var/host/swinstall_exec.log").c_str(), &made), 0);
    EXPECT_EQ(made.st_mode, S_IFREG | support::mode_on_host(01130));
}

TEST(install_log, a_program_is_known_by_its_key_text_and_by_zeros_when_it_cannot_be_read)
{
    install_machine m;
    m.write("/p/empty", "");
    EXPECT_EQ(sorvanic_write_local_exec_log(m.file("/p/empty"), "/usr/bin/tool"), 0);
    EXPECT_EQ(m.exec_log(), "/usr/bin/tool\t5E65753B\n"); // the key 0x3b75655e
    EXPECT_EQ(sorvanic_write_local_exec_log(nullptr, "/p/none"), 0);

    platform::fail_call(platform::fault::allocation, 1);
    record_exec(m, "/p/no-memory-for-the-line");
    EXPECT_EQ(m.log(), "");
    platform::fail_call(platform::fault::allocation, 2);
    record_exec(m, "/p/no-memory-to-read");
    EXPECT_EQ(m.log(), "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n");
    EXPECT_EQ(m.exec_log(), "/usr/bin/tool\t5E65753B\n/p/no-memory-to-read\t00000000\n");
}

} // namespace
