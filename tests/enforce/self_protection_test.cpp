#include "enforce/self_protection.h"

#include <string>

#include "platform/user/driver/machine.h"
#include "tests/support/machine.h"

namespace {

/// What task_kill says of a signal to process 30, named `comm` and running `program` ("": none).
int kill(const support::machine& m, const std::string& comm, const std::string& program, int signal,
         std::size_t failing_allocation = 0)
{
    platform::reset_tasks();
    const platform::file_handle file = program.empty() ? nullptr : m.open(program);
    const platform::task_handle target = platform::add_task(30, 1, comm, file.get());
    const support::acting sender(1);
    platform::fail_call(platform::fault::allocation, failing_allocation);
    return platform::call_task_kill(target.get(), nullptr, signal, 0);
}

TEST(self_protection, protects_whom_name_and_program_say_from_what_they_do_not_take)
{
    const std::string agent = "/usr/sorvanic/sorvagent", locker = "/usr/sorvanic/sorvX11lock";
    const struct {
        std::string comm, program;
        const char* listed; // protected processes
        bool user_signals;  // whether SIGUSR1 and SIGUSR2 pass
        bool others;
    } cases[] = {
        {"sorvagent", agent, "", true, false},
        {"SORVAGENT", agent, "", true, false},
        {"sorvX11lock", locker, "", true, false},
        {"sorv", agent, "", true, false}, // a leading part
        {"", agent, "", true, false},
        {"sorvagent2", agent, "", true, true},
        {"bash", agent, "", true, true},
        {"bash", agent, "bash", true, false},           // a listed name leads to the path
        {"sorvagent", agent, "sorvagent", true, false}, // where the product's own comes first
        {"sorvagent", agent + "-old", "", true, false}, // whatever follows
        {"sorvagent", "/opt/sorvagent", "", true, true},
        {"sorvagent", "/opt/sorvagent", "sorvagent", false, false},
        {"sorvagent", "", "sorvagent", true, true},
        {"agentd", "/usr/bin/agentd", "agentd", false, false},
        {"agentd", "/usr/bin/agentd", "/usr/bin/agentd", true, true},
        {"other", "/usr/bin/agentd", "agentd", true, true},
        {"agentd", "/usr/bin/other", "agentd", true, true},
        {"", "/usr/bin/agentd", "agentd", false, false},
        {"bash", "/usr/bin/agentd", "", true, true},
    };
    support::machine m;
    for (const auto& c : cases)
        if (!c.program.empty())
            m.write(c.program, "");
    for (const char* status : {"3", "2", "1", "0", "4"})
        for (const auto& c : cases) {
            m.encoded("statlabel", status);
            m.encoded("ptpylist", c.listed);
            ASSERT_EQ(m.load(), 0);
            for (const int signal : {0, 1, 9, 10, 11, 12, 15, 19, 64}) {
                const bool passes =
                    *status != '3' || (signal == 10 || signal == 12 ? c.user_signals : c.others);
                EXPECT_EQ(kill(m, c.comm, c.program, signal), passes ? 0 : -1)
                    << status << " " << c.comm << " " << c.program << " " << c.listed << " " << signal;
            }
            m.unload();
        }
}

TEST(self_protection, lets_through_what_it_cannot_judge)
{
    support::machine m("statlabel=3");
    m.write("/usr/sorvanic/sorvagent", "");
    EXPECT_EQ(kill(m, "sorvagent", "/usr/sorvanic/sorvagent", 9), -1);
    EXPECT_EQ(kill(m, "sorvagent", "/usr/sorvanic/sorvagent", 9, 1), 0) << "no memory for the path";
    EXPECT_TRUE(platform::fault_fired());
    EXPECT_EQ(platform::call_task_kill(nullptr, nullptr, 9, 0), 0);
    const auto no_process = reinterpret_cast<kernel::task_struct*>(-3L);
    EXPECT_EQ(platform::call_task_kill(no_process, nullptr, 9, 0), 0);
}

} // namespace
