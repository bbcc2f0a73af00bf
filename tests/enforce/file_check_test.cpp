#include "enforce/file_check.h"

#include <string>
#include <vector>

#include "enforce/label_test.h"
#include "tests/enforce/file_machine.h"

namespace {

struct file_row {
    const char* what;
    std::string policy; // what differs from that of a file_machine
    const char* event;
    int result;
    const char* reported = ""; // "KIND VERDICT, …" of the event's path, or "KIND VERDICT PATH, …"
    const char* user = "alice";
};

/// The records in full.
std::string expected_records(const file_row& row)
{
    std::string path = row.event;
    path.erase(0, path.rfind(' ') + 1);
    if (path.ends_with('+') || path.ends_with('/'))
        path.pop_back();
    std::string all;
    std::istringstream records(row.reported);
    for (std::string record; std::getline(records >> std::ws, record, ',');)
        all += (all.empty() ? "" : ", ") + record +
               (record.find('/') == std::string::npos ? " " + path : "") + " " +
               (*row.user == '\0' ? "SYSTEM" : row.user) + " viewer";
    return all;
}

void run(const std::vector<file_row>& rows)
{
    for (const file_row& row : rows) {
        SCOPED_TRACE(row.what);
        file_machine m;
        m.policy(row.policy);
        m.start("viewer", row.user);
        EXPECT_EQ(m.act(row.event), row.result);
        EXPECT_EQ(m.reported(), expected_records(row));
        EXPECT_EQ(m.log(), "");
    }
}

const std::string labels = "sublabel=alice:0:1:1:0,0,0,0,0,0,0,0 objlabel=/srv:0:1:1:0,0,0,0,0,0,0,0";

TEST(file_check, the_first_that_grants_all_of_it_decides_and_reports_what_it_must)
{
    const char* const event = "file:4 /srv/f";
    run({
        {"nothing grants", "", event, -1, "faau 0"},
        {"program rule", "appevp=/srv:/bin/viewer:4", event, 0, "pcau 1"},
        {"another program's", "appevp=/srv:editor:4", event, -1, "faau 0, pcau 0"},
        {"a program rule that lacks it", "appevp=/srv:*:2", event, -1, "faau 0, pcau 2"},
        {"overruled by a privilege", "appevp=/srv:*:2 priv=/srv:alice:4", event, 0, "pcau 2"},
        {"another program's, likewise", "appevp=/srv:editor:4 priv=/s:alice:4", event, 0, "pcau 0"},
        {"overruled by a rule", "appevp=/srv:*:2 dac=/srv:alice:4", event, 0, "faau 1, pcau 2"},
        {"privilege", "priv=/srv:alice:4", event, 0},
        {"a privilege that lacks it", "priv=/srv:alice:4", "file:6 /srv/f", -1, "faau 0"},
        {"one that lacks execution", "priv=/srv:alice:4", "file:1 /srv/f", -1, "faau 0"},
        {"rule", "dac=/srv:alice:6", event, 0, "faau 1"},
        {"whatever the labels", "dac=/srv:alice:4 objlabel=/srv:0:9:9:0,0,0,0,0,0,0,0", event, 0, "faau 1"},
        {"a rule that lacks it", "dac=/srv:alice:2", event, -1, "faau 2"},
        {"overruled by labels", "dac=/srv:alice:2 " + labels, event, 0, "faau 1"},
        {"labels", labels, event, 0, "faau 1"},
        {"no object label", labels + " objlabel=", event, -1, "faau 0"},
        {"no subject label", labels + " sublabel=", event, -1, "faau 0"},
        {"nobody's process", "dac=/srv:system:4", event, 0, "faau 1", ""},
    });
}

TEST(file_check, status_and_switches_decide_what_is_checked_and_reported)
{
    const char* const event = "file:4 /srv/f";
    run({
        {"outside", "", "file:4 /srv2/f", 0},
        {"the directory itself", "", "inode:2 /srv/", -1, "faau 0"},
        {"file control off", "modllabel=2202", event, 0},
        {"system off", "statlabel=1", event, 0},
        {"observing", "statlabel=2", event, 0, "faau 0"},
        {"no status", "statlabel=0", event, -1, "faau 0"},
        {"unknown status", "statlabel=4", event, -1, "faau 0"},
        {"only refusals, refused", "auditlabel=2:1\n3:1 appevp=/srv:*:2", event, -1, "faau 0, pcau 2"},
        {"allowed", "auditlabel=2:1\n3:1 appevp=/srv:*:2 dac=/srv:alice:4", event, 0},
        {"allowed by program", "auditlabel=2:1\n3:1 appevp=/srv:*:4", event, 0},
        {"program records only", "auditlabel=3:2 appevp=/srv:*:2", event, -1, "pcau 2"},
        {"unknown values", "auditlabel=2:3\n3:3 appevp=/srv:*:2", event, -1},
    });
}

TEST(file_check, each_event_asks_for_its_own_bits)
{
    const char* const reads = "dac=/srv:alice:4";
    const char* const writes = "dac=/srv:alice:2";
    const char* const removes = "dac=/srv:alice:256";
    const char* const all = "dac=/srv:alice:1023";
    run({
        {"renaming inside, silently", all, "rename /srv/a /srv/b+", -1},
        {"while observing", "statlabel=2", "rename /srv/a /srv/b+", 0},
        {"renaming into", all, "rename /opt/a /srv/b+", -1},
        {"out of", all, "rename /srv/a /opt/b+", -1},
        {"elsewhere", all, "rename /opt/a /opt/b+", 0},
        {"link into", "", "link /opt/a /srv/b+", 0, "faau 0"},
        {"link out of", "", "link /srv/a /opt/b+", 0},
        {"link inside", "", "link /srv/a /srv/b+", -1, "faau 0, faau 0 /srv/a"},
        {"link by rule", writes, "link /srv/a /srv/b+", 0, "faau 1"},
        {"create", writes, "create /srv/a+", 0, "faau 1"},
        {"create by a reader", reads, "create /srv/a+", -1, "faau 2"},
        {"symlink", writes, "symlink /srv/a+", 0, "faau 1"},
        {"mkdir", writes, "mkdir /srv/a+", 0, "faau 1"},
        {"unlink", removes, "unlink /srv/a", 0, "faau 1"},
        {"unlink by a writer", writes, "unlink /srv/a", -1, "faau 2"},
        {"rmdir", removes, "rmdir /srv/a/", 0, "faau 1"},
        {"rmdir by a writer", writes, "rmdir /srv/a/", -1, "faau 2"},
        {"opening is reading", reads, "file:0x20 /srv/f", 0, "faau 1"},
        {"and stays what it was", reads, "file:0x22 /srv/f", -1, "faau 2"},
        {"the bit above it, too", reads, "file:0x40 /srv/f", 0, "faau 1"},
        {"asking is writing", reads, "inode:0x10 /srv/f", -1, "faau 2"},
        {"for a writer", writes, "inode:0x10 /srv/f", 0, "faau 1"},
        {"appending is not writing", writes, "file:8 /srv/f", -1, "faau 2"},
        {"an empty mask", "dac=/srv:alice:0", "file:0 /srv/f", 0, "faau 1"},
        {"reading a directory", "", "inode:4 /srv/d/", 0},
        {"searching it", "", "inode:1 /srv/d/", 0},
        {"both", "", "inode:5 /srv/d/", -1, "faau 0"},
        {"opening it", "", "inode:0x24 /srv/d/", -1, "faau 0"},
        {"reading a file", "", "inode:4 /srv/d", -1, "faau 0"},
    });
}

TEST(file_check, labels_permit_by_categories_then_levels)
{
    const security_label low = {0, 3, 3, {1, 2, 0, 0, 0, 0, 0, 0}};
    const auto with = [&](kernel::u16 confidentiality, kernel::u16 integrity,
                          std::initializer_list<kernel::u8> categories = {1, 2}) {
        security_label label = {9, confidentiality, integrity, {}};
        std::copy(categories.begin(), categories.end(), label.categories);
        return label;
    };
    const struct {
        const char* what;
        security_label subject, object;
        const char* permitted; // of: 0 nothing, x 1, w 2, r 4, a 8, o 0x40, d 0x100, b read and write
    } cases[] = {
        {"equal", low, with(3, 3), "0xwraodb"},
        {"a higher object", low, with(5, 3), "0xwadb"}, // what also writes is judged as writing
        {"and less sound", low, with(5, 2), "0xwadb"},
        {"a lower object", low, with(2, 3), "0xro"},
        {"a sounder object", low, with(3, 5), "0xro"},
        {"a less sound one", low, with(3, 2), "0xwadb"},
        {"higher and sounder", low, with(5, 5), "0x"},
        {"lower and less sound", low, with(2, 2), "0x"},
        {"levels have 16 bits without a sign", low, with(0xffff, 3), "0xwadb"},
        {"a category that only the object has", low, with(3, 3, {1, 2, 3}), "0xwraodb"},
        {"one of the subject's own", with(3, 3, {1, 2, 3}), low, "0"},
        {"only the first difference counts", with(3, 3, {1, 0, 7}), low, "0xwraodb"},
        {"another category", with(3, 3, {1, 5}), low, "0"},
        {"in the last place", with(3, 3, {1, 2, 0, 0, 0, 0, 0, 1}), low, "0"},
    };
    for (const auto& c : cases) {
        std::string permitted;
        const std::pair<char, kernel::u32> masks[] = {{'0', 0}, {'x', 1},    {'w', 2},     {'r', 4},
                                                      {'a', 8}, {'o', 0x40}, {'d', 0x100}, {'b', 6}};
        for (const auto& [letter, mask] : masks)
            if (label_test(c.subject, c.object, mask))
                permitted += letter;
        EXPECT_EQ(permitted, c.permitted) << c.what;
    }
}

TEST(file_check, the_products_directories_are_kept_while_enforcing_and_observing)
{
    const struct {
        const char* comm;
        std::vector<const char*> refused, allowed;
    } cases[] = {
        {"cp",
         {"file:4 /etc/sorvanic/whitelist", "inode:5 /etc/sorvanic/", "create /etc/sorvanic/new+",
          "create /etc/sorvanic/kernel/new+", "rename /etc/sorvanic/whitelist /tmp/x+"},
         {"create /etc/sorvanic/kernel/deep/new+", "file:4 /etc/other"}},
        {"sorvagent", {}, {"file:6 /etc/sorvanic/whitelist"}},
        {"SORVAGENT", {}, {"unlink /etc/sorvanic/whitelist"}},
        {"bash", {}, {"file:2 /etc/sorvanic/whitelist"}},
        {"gdm-session-worker", {}, {"file:2 /etc/sorvanic/whitelist"}}, // known by 15 characters
        {"sorv", {}, {"file:2 /etc/sorvanic/whitelist"}},               // a leading part
        {"sorvagent2", {"file:2 /etc/sorvanic/whitelist"}, {}},
        {"cp", // the mask counts as it comes
         {"file:0x24 /usr/sorvanic/sorvagent", "file:8 /usr/sorvanic/sorvagent",
          "inode:0x10 /usr/sorvanic/sorvagent", "inode:3 /usr/sorvanic/"},
         {"file:4 /usr/sorvanic/sorvagent", "file:5 /usr/sorvanic/sorvagent",
          "file:0 /usr/sorvanic/sorvagent", "file:2 /usr/sorvanic/lib/f",
          "link /usr/sorvanic/sorvagent /tmp/x+"}},
        {"sorvagent",
         {"file:2 /usr/sorvanic/sorvagent", "unlink /usr/sorvanic/sorvagent", "create /usr/sorvanic/new+"},
         {}},
    };
    for (const char status : {'0', '1', '2', '3', '4'})
        for (const auto& c : cases) {
            file_machine m;
            m.policy(std::string("modllabel=0000 statlabel=") + status);
            m.start(c.comm, "");
            for (const char* event : c.refused)
                EXPECT_EQ(m.act(event), status == '2' || status == '3' ? -1 : 0) << status << c.comm << event;
            for (const char* event : c.allowed)
                EXPECT_EQ(m.act(event), 0) << status << c.comm << event;
        }
    file_machine m;
    m.remove("/etc/sorvanic/whitelist");
    m.remove("/usr/sorvanic/sorvagent");
    m.start("cp", "");
    EXPECT_EQ(m.act("file:2 /etc/sorvanic/whitelist") + m.act("file:2 /usr/sorvanic/x"), 0)
        << "a number of 0 is no directory's";
}

TEST(file_check, where_both_directories_are_one_only_reading_and_executing_is_left)
{
    file_machine m;
    m.start("cp", "");
    sorvanic_readonly_exec_inode_number = sorvanic_config_inode_number;
    EXPECT_EQ(m.act("file:4 /etc/sorvanic/whitelist"), 0);
    EXPECT_EQ(m.act("file:2 /etc/sorvanic/whitelist"), -1);
    EXPECT_EQ(m.act("file:4 /etc/sorvanic/kernel/f"), -1) << "two levels up only the configuration counts";
}

TEST(file_check, allows_without_a_path_and_refuses_without_a_label_when_memory_is_short)
{
    file_machine m;
    m.policy(labels + " appevp=/srv:other:7");
    m.start("viewer", "alice");
    const std::size_t before = platform::live().allocations;
    std::string results;
    support::fail_each_call(
        platform::fault::allocation,
        [&] { // each is reported anew
            results += m.act("file:4 /srv/f" + std::to_string(results.size() + 1)) == 0 ? '+' : '-';
        },
        [&](std::size_t) { EXPECT_EQ(platform::live().allocations, before); });
    // The path; the object's and the subject's label; then records and their buffers.
    EXPECT_EQ(results, "+--+++++");
    EXPECT_TRUE(m.reported().starts_with("faau 0 /srv/f2 alice viewer, pcau 0 /srv/f2"))
        << "after no word of f1";
}

} // namespace
