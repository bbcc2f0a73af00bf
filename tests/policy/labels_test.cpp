#include <string>
#include <utility>

#include "policy/objlabel.h"
#include "policy/sublabel.h"
#include "tests/policy/policy_fixture.h"

// Both tables read the same lines.

namespace {

std::string text(const security_label& label)
{
    std::string all = std::to_string(label.value1) + " " + std::to_string(label.confidentiality) + " " +
                      std::to_string(label.integrity) + " ";
    for (const kernel::u8 category : label.categories)
        all += std::to_string(category) + ",";
    return all;
}

class labels : public policy_fixture {
protected:
    void load(const std::string& subjects, const std::string& objects)
    {
        machine_.encoded("sublabel", subjects);
        machine_.encoded("objlabel", objects);
        reload();
    }
    static void reload()
    {
        sorvanic_kernel_sublabel_module.reload();
        sorvanic_kernel_objlabel_module.reload();
    }
    /// The label that the table finds, or "".
    template <typename Label, typename Ops>
    static std::string find(const Ops& table, const std::string& key)
    {
        Label found = {};
        const Label* result = table.search(key.c_str(), &found);
        EXPECT_TRUE(result == nullptr || result == &found);
        return result == nullptr ? "" : text(found.label);
    }
    static std::string subject(const std::string& name)
    {
        return find<subject_label>(sorvanic_kernel_sublabel_module, name);
    }
    static std::string object(const std::string& path)
    {
        return find<object_label>(sorvanic_kernel_objlabel_module, path);
    }
};

TEST_F(labels, a_line_has_all_its_numbers_or_is_skipped)
{
    const std::string none = "0,0,0,0,0,0,0,0";
    using namespace std::string_literals;
    const std::pair<std::string, std::string> cases[] = {
        // The rest of the line behind its key, and the label.
        {":0:3:1:1,2,0,0,0,0,0,0", "0 3 1 1,2,0,0,0,0,0,0,"},
        {":7:65535:65536:255,256,300,0,0,0,0,9", "7 65535 0 255,0,44,0,0,0,0,9,"},
        {":0:70000:1:" + none, "0 4464 1 0,0,0,0,0,0,0,0,"}, // cut, not clamped
        {":0:4294967299:1:" + none, "0 3 1 0,0,0,0,0,0,0,0,"},
        {":x:1:-1:,,,,,, 5,", "0 1 0 0,0,0,0,0,0,0,0,"}, // no digit is 0
        {":1:2:3:1,2,3,4,5,6,7,8,9", "1 2 3 1,2,3,4,5,6,7,8,"},
        {":1:2:3:1,2,3,4,5,6,7,8:9", "1 2 3 1,2,3,4,5,6,7,8,"},
        {":1:2:3:1:9,2,3,4,5,6,7,8", "1 2 3 1,2,3,4,5,6,7,8,"},
    };
    const auto expect = [this](const std::string& rest, const std::string& label) {
        load("key" + rest + "\n", "/key" + rest + "\n");
        EXPECT_EQ(subject("key"), label) << rest;
        EXPECT_EQ(object("/key"), label) << rest;
    };
    for (const auto& [rest, label] : cases)
        expect(rest, label);
    for (const std::string& rest :
         {":0:3000000000:1:" + none, ":2147483648:0:1:" + none, ":0:0:1:0,0,0,0,0,0,0,4294967295"s,
          ":0:3:1:1,2"s, ":0:3:1:1,2,3,4,5,6,7"s, ":0:3:" + none, ":0:3:1"s, ""s})
        expect(rest, "");
}

TEST_F(labels, a_subject_is_known_by_its_whole_name_an_object_by_the_tree_it_is_in)
{
    const std::string zeros = ":0:0:0,0,0,0,0,0,0,0\n";
    const std::string first = ":1" + zeros, second = ":2" + zeros, third = ":3" + zeros;
    const std::string name(31, 'n');
    const std::string fits = "/" + std::string(511 - first.size(), 'f'); // a line of 511 characters
    load("alice" + first + "ALICE" + second + name + "cut-off" + third + std::string(600, 'x') + third +
             "#no" + first,
         "/srv/a" + first + "/srv/a/b" + second + "/srv/" + second + fits + third + fits + "x" + third);
    const auto value = [](const std::string& label) { return label.empty() ? '-' : label[0]; };
    const std::pair<std::string, char> subjects[] = {
        {"alice", '1'}, {"Alice", '1'}, {"alic", '-'},           {"alice2", '-'},
        {"", '-'},      {name, '3'},    {name + "cut-off", '-'}, {std::string(31, 'x'), '3'},
    };
    for (const auto& [who, expected] : subjects)
        EXPECT_EQ(value(subject(who)), expected) << who;
    const std::pair<std::string, char> objects[] = {
        {"/srv/a", '1'},  {"/SRV/A/x/y", '1'}, {"/srv/a/b", '1'}, // the first, not the longest
        {"/srv/ab", '-'}, {"/srv", '-'},       {"/srv/", '2'},    {fits, '3'}, {fits + "x", '-'},
    };
    for (const auto& [path, expected] : objects)
        EXPECT_EQ(value(object(path)), expected) << path;

    load("", ":4:0:0:0,0,0,0,0,0,0,0\n");
    EXPECT_EQ(value(object("/anything")), '4') << "an empty path is above everything";
    EXPECT_EQ(value(object("relative")), '-');
}

TEST_F(labels, drops_only_the_line_that_has_no_memory)
{
    const std::string rest = ":1:2:3:1,2,3,4,5,6,7,8\n";
    load("", ""); // from here on there are work files
    machine_.encoded("sublabel", "a" + rest + "b" + rest);
    machine_.encoded("objlabel", "/a" + rest + "/b" + rest);
    // Two buffers to decode, one for a line, then one record a line, and the index, without which both are
    // found all the same; each table in its turn.
    const char* const expected[] = {"abab", "ab", "ab", "ab",  "bab", "aab", "abab",
                                    "ab",   "ab", "ab", "abb", "aba", "abab"};
    fail_each_call(fault::allocation, reload, [&](std::size_t n) {
        std::string found;
        for (const char* name : {"a", "b"})
            found += subject(name).empty() ? "" : name;
        for (const char* path : {"/a", "/b"})
            found += object(path).empty() ? "" : path + 1;
        ASSERT_LT(n, std::size(expected));
        EXPECT_EQ(found, expected[n]);
    });
}

} // namespace
