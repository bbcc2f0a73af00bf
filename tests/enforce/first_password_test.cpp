#include "platform/user/driver/sysctl.h"
#include "policy/uactivate.h"
#include "tests/enforce/file_machine.h"

namespace {

/// A machine whose user alice has started the password program.
struct password_machine : file_machine {
    void start_as(const std::string& user, const std::string& arguments, kernel::u32 state)
    {
        encoded("platuser", "alice\n");
        start("passwd", user);
        sorvanic_kernel_uactivate_module.update("alice", state);
        platform::set_arguments(platform::find_task(20).get(), arguments);
    }

    /// Alice's state, and the protected-shell switch.
    static std::string state()
    {
        return std::to_string(support::state_of("alice")) + " " +
               platform::sysctl_read("sorvanic/proshellmode").value_or("") +
               platform::sysctl_read("sorvanic/proshelluser").value_or("");
    }
};

using namespace std::string_literals;

TEST(first_password, is_set_when_the_password_program_of_that_user_replaces_the_file)
{
    const std::string own = "passwd\0alice\0"s;
    const std::string usual = "rename /etc/nshadow /etc/shadow";
    const std::string page(4090, 'p'); // with its end and the name, 4096 bytes
    const struct {
        const char* what;
        std::string arguments, event;
        bool set;
        const char* user = "alice";
        kernel::u32 state = 1;
        const char* policy = "";
        int result = 0;
    } cases[] = {
        {"replaced", own, usual, true},
        {"the file moved away", own, "rename /etc/shadow /etc/x+", true},
        {"its backup", own, "rename /etc/nshadow /etc/shadow-", true},
        {"another file", own, "rename /etc/a /etc/passwd", false},
        {"one that ends so", own, "rename /tmp/etc/shadow /tmp/x+", false},
        {"removed only", own, "unlink /etc/shadow", false},
        {"written only", own, "file:2 /etc/shadow", false},
        {"in upper case", "passwd\0ALICE\0"s, "rename /etc/nshadow /ETC/Shadow", true},
        {"a longer argument", "passwd\0alice2\0"s, usual, true},
        {"a shorter one", "passwd\0alic\0"s, usual, false},
        {"a later one", "passwd\0-q\0alice\0"s, usual, false},
        {"none", "passwd\0"s, usual, false},
        {"no arguments", "", usual, false},
        {"an empty program name", "\0alice\0"s, usual, true},
        {"no end", "passwd", usual, false},
        {"4096 bytes", page + '\0' + "alice", usual, true},
        {"4097 bytes lose two", page + '\0' + "alice" + '\0', usual, false},
        {"over a page's end", page.substr(1) + "\0alice\0"s, usual, true},
        {"state 0", own, usual, false, "alice", 0},
        {"another user", "passwd\0bob\0"s, usual, false, "bob"},
        {"nobody", own, usual, false, ""},
        {"refused in the end", own, usual, true, "alice", 1, "dirctl=/etc", -1},
        {"while observing", own, usual, true, "alice", 1, "statlabel=2"},
        {"system off", own, usual, false, "alice", 1, "statlabel=1"},
        {"file control off", own, usual, false, "alice", 1, "modllabel=2202"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        password_machine m;
        m.policy(c.policy);
        m.start_as(c.user, c.arguments, c.state);
        const std::string before = m.state();
        EXPECT_EQ(m.act(c.event), c.result);
        EXPECT_EQ(m.state(), c.set ? "2 1\nalice\n" : before);
        EXPECT_EQ(m.reported() + m.log(), "");
    }
}

TEST(first_password, stays_unset_when_its_evidence_cannot_be_read)
{
    const struct {
        platform::fault kind;
        const char* states; // with the first call failing, the second and so on, and none
    } cases[] = {
        {platform::fault::allocation, "1122"}, // the path, the arguments, the other path
        {platform::fault::user_page, "122"},   // the second page is behind the name
    };
    for (const auto& c : cases) {
        std::string states;
        for (bool fired = true; fired;) {
            password_machine m;
            m.start_as("alice", "passwd\0alice\0"s + std::string(4000, 'x') + '\0', 1);
            platform::fail_call(c.kind, states.size() + 1);
            EXPECT_EQ(m.act("rename /etc/nshadow /etc/shadow"), 0);
            fired = platform::fault_fired();
            states += m.state()[0];
            platform::assert_thread_clean();
        }
        EXPECT_EQ(states, c.states);
    }
}

} // namespace
