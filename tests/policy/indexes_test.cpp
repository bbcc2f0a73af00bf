#include <random>
#include <string>
#include <vector>

#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/objlabel.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/ptpy.h"
#include "policy/sublabel.h"
#include "policy/uactivate.h"
#include "tests/policy/policy_fixture.h"

// Tables whose lookups use an index. Without memory for it they walk their list, and that walk is what the
// index must agree with.

namespace {

using kernel::u32;
using texts = std::vector<std::string>;

std::mt19937 random_numbers(1);

std::size_t below(std::size_t limit)
{
    return random_numbers() % limit;
}

const std::string& one_of(const texts& all)
{
    return all[below(all.size())];
}

/// Few and alike, so that paths meet: case in and outside ASCII (0xD7 has none), empty components, parts of
/// each other, one above the length of a line and names around that of a key.
std::string any_path()
{
    static const texts parts = {"a",
                                "A",
                                "b",
                                "ab",
                                "a b",
                                "",
                                "@",
                                "`",
                                "[",
                                "{",
                                "\xc4",
                                "\xe4",
                                "\xd7",
                                "\xf7",
                                "name_of_16_bytes",
                                "*",
                                "NAME_of_16_bytes_and_more",
                                std::string(250, 'l')};
    std::string path;
    for (std::size_t n = below(5); n > 0; --n)
        path += "/" + one_of(parts);
    return below(8) == 0 ? one_of(parts) + path + "/" : path;
}

std::string any_name()
{
    static const texts names = {
        "u", "U", "user", "", "*", "\xc4", "\xe4", std::string(31, 'n'), std::string(31, 'n') + "x"};
    return one_of(names);
}

struct table {
    const char* file;
    int (*reload)();
    std::string (*any_line)();
    /// What the lookup answers and the line that it names.
    std::string (*ask)(const std::string& path, const std::string& who, u32 mask);
};

std::string rule()
{
    return any_path() + ":" + any_name() + ":" + std::to_string(below(8));
}

std::string label(const std::string& of)
{
    return of + ":0:" + std::to_string(below(9)) + ":0:0,0,0,0,0,0,0,0";
}

std::string answer(int result, u32 line)
{
    return std::to_string(result) + " by line " + std::to_string(line);
}

const table tables[] = {
    {"dirctl", sorvanic_kernel_dirctl_module.reload, [] { return "/" + any_path(); },
     [](const std::string& path, const std::string&, u32) {
         u32 line = 0;
         u32 size = 0;
         const int found = find_controlled_directory(path.c_str(), &line, &size);
         return answer(found, line);
     }},
    {"dac", sorvanic_kernel_dacctl_module.reload, rule,
     [](const std::string& path, const std::string& who, u32 mask) {
         u32 line = 0;
         const int found = find_user_rule(who.c_str(), path.c_str(), mask, &line);
         return answer(found, line);
     }},
    {"priv", sorvanic_kernel_privctl_module.reload, rule,
     [](const std::string& path, const std::string& who, u32 mask) {
         u32 line = 0;
         const int found = find_privilege(who.c_str(), path.c_str(), mask, &line);
         return answer(found, line);
     }},
    {"appevp", sorvanic_kernel_pracctl_module.reload,
     [] { return any_path() + ":" + (below(2) == 0 ? any_path() : "/bin/" + any_name()) + ":4"; },
     [](const std::string& path, const std::string& who, u32 mask) {
         matched_rule matched;
         const int found = find_program_rule(path.c_str(), who.c_str(), mask, &matched);
         return answer(found, matched.line);
     }},
    {"objlabel", sorvanic_kernel_objlabel_module.reload, [] { return label(any_path()); },
     [](const std::string& path, const std::string&, u32) {
         object_label found = {};
         sorvanic_kernel_objlabel_module.search(path.c_str(), &found);
         return answer(found.label.confidentiality, found.line);
     }},
    {"sublabel", sorvanic_kernel_sublabel_module.reload, [] { return label(any_name()); },
     [](const std::string&, const std::string& who, u32) {
         subject_label found = {};
         sorvanic_kernel_sublabel_module.search(who.c_str(), &found);
         return answer(found.label.confidentiality, 0);
     }},
    {"platuser", sorvanic_kernel_uactivate_module.reload, [] { return "x" + any_name(); },
     [](const std::string&, const std::string& who, u32 state) {
         // One update, so that it can be told which record had it.
         if (state == 1)
             sorvanic_kernel_uactivate_module.update(("x" + who).c_str(), state);
         u32 found = 9;
         sorvanic_kernel_uactivate_module.search(("x" + who).c_str(), &found);
         return answer(static_cast<int>(found), 0);
     }},
    {"ptpylist", sorvanic_kernel_ptpy_module.reload,
     [] { return below(2) == 0 ? any_name() : any_path().erase(0, below(2)); },
     [](const std::string& path, const std::string& who, u32) {
         u32 line = 0;
         const int found = find_protected_process(path.c_str(), &line);
         return answer(found, line) + "," + std::to_string(sorvanic_kernel_ptpy_module.search(who.c_str())) +
                std::to_string(sorvanic_kernel_ptpy_module.search(path.substr(path.rfind('/') + 1).c_str()));
     }},
};

struct question {
    std::string path, who;
    u32 mask;
};

class indexes : public policy_fixture {
protected:
    /// Both copies.
    void empty(const table& of)
    {
        machine_.encoded(of.file, "");
        of.reload();
        of.reload();
    }
    static texts answers(const table& of, const std::vector<question>& asked)
    {
        texts all;
        for (const question& q : asked)
            all.push_back(of.ask(q.path, q.who, q.mask));
        return all;
    }
};

TEST_F(indexes, answer_as_the_walk_does)
{
    for (int round = 0; round < 60; ++round)
        for (const table& of : tables) {
            std::size_t lines = 0;
            std::string content;
            for (std::size_t tried = 1 + below(round % 10 == 0 ? 400 : 30); tried > 0; --tried) {
                const std::string line = of.any_line();
                if (line.empty() || line.size() > 511)
                    continue;
                ++lines;
                content += line + "\n";
            }
            std::vector<question> asked;
            for (int n = 0; n < 300; ++n)
                asked.push_back({any_path(), any_name(), static_cast<u32>(below(8))});

            empty(of);
            const std::size_t before = entries();
            machine_.encoded(of.file, content);
            of.reload();
            ASSERT_EQ(entries() - before, lines == 0 ? 0 : lines + 1) << of.file << ": no index";
            const texts indexed = answers(of, asked);

            empty(of);
            machine_.encoded(of.file, content);
            const std::size_t decoding_and_line_buffers = 3;
            platform::fail_call(fault::allocation, decoding_and_line_buffers + lines + 1);
            of.reload();
            ASSERT_EQ(platform::fault_fired(), lines != 0) << of.file;
            platform::fail_call(fault::allocation, 0);
            const texts walked = answers(of, asked);
            for (std::size_t n = 0; n < asked.size(); ++n)
                ASSERT_EQ(indexed[n], walked[n])
                    << of.file << ": " << asked[n].path << ", " << asked[n].who << " in\n"
                    << content;
        }
}

} // namespace
