#include <atomic>
#include <set>
#include <string>
#include <vector>

#include "policy/uactivate.h"
#include "process/process_map.h"
#include "tests/enforce/install_machine.h"
#include "tests/support/threads.h"

namespace {

using support::at_once;

std::set<std::string> lines_of(const std::string& text)
{
    const std::vector<std::string> lines = support::words(text, '\n');
    return {lines.begin(), lines.end()};
}

TEST(install_stress, of_two_marks_made_at_once_one_stays)
{
    install_machine m;
    m.start();
    m.begin_install();
    const std::size_t before = platform::live().allocations;
    constexpr std::size_t rounds = 300;
    for (std::size_t n = 0; n < rounds; ++n) {
        const std::string path = "/s/" + std::to_string(n);
        m.write(path, "x");
        m.file(path);
        at_once({[&] { m.chmod(30, path); }, [&] { m.chmod(31, path); }});
    }
    EXPECT_EQ(platform::live().allocations, before + rounds);
}

TEST(install_stress, phases_begin_and_end_while_files_are_made_and_run)
{
    install_machine m;
    m.encoded("platuser", "operator\n");
    m.start();
    for (const char* path : {"/opt/tool", "/opt/unknown", "/opt/sorvall"})
        m.file(path);
    sorvanic_kernel_hashmap_module.insert(31, "operator");

    constexpr int rounds = 300;
    std::atomic<unsigned> wrong{0};
    const auto creates = [&](int task, const std::string& stem) {
        for (int n = 0; n < rounds; ++n) {
            m.create(task, stem + std::to_string(n));
            m.chmod(task, "/opt/tool");
        }
    };
    const auto runs = [&](const std::string& path) {
        for (int n = 0; n < rounds; ++n) {
            m.run(30, path);
            wrong += m.run(52, path) == -1 ? 0u : 1u;
        }
    };
    at_once({
        [&] { creates(30, "/first/"); },
        [&] { creates(40, "/second/"); },
        [&] { runs("/opt/tool"); },
        [&] { runs("/opt/unknown"); },
        [&] {
            for (int n = 0; n < rounds; ++n) {
                m.begin_install();
                sorvanic_kernel_uactivate_module.update("operator", static_cast<kernel::u32>(n % 3));
                m.run(31, "/opt/tool");
                if (n % 3 == 0)
                    sorvanic_kernel_task_inside_super_proc_clean();
                if (n % 10 == 0)
                    sorvanic_kernel_uactivate_module.reload();
            }
        },
    });
    EXPECT_EQ(wrong, 0u) << "a process outside ran an unlisted program";

    // Whether anything was created within a phase so far is up to the scheduler.
    sorvanic_kernel_task_inside_super_proc_clean();
    m.begin_install();
    m.create(30, "/after");

    std::set<std::string> listed = lines_of(m.install_log());
    EXPECT_EQ(listed.erase("/after"), 1u) << "no phase begins any more";
    listed.erase("/opt/tool");
    for (int n = 0; n < rounds; ++n) {
        listed.erase("/first/" + std::to_string(n));
        listed.erase("/second/" + std::to_string(n));
    }
    EXPECT_TRUE(listed.empty()) << "no path of anybody's: " << *listed.begin();

    std::set<std::string> programs = lines_of(m.exec_log());
    for (const char* path : {"/opt/tool", "/opt/unknown"})
        programs.erase(std::string(path) + "\t" + key_text(path));
    EXPECT_TRUE(programs.empty()) << *programs.begin();
}

} // namespace
