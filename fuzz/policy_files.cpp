// The text of a policy file, of any of the sixteen.
//
// The first byte picks the table, the second says how many of the bytes behind it are looked up, the
// rest is the text.

#include <algorithm>
#include <string>

#include "fuzz/machine.h"
#include "policy/auditctl.h"
#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/modlctl.h"
#include "policy/objlabel.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/ptpy.h"
#include "policy/sublabel.h"
#include "policy/uactivate.h"
#include "policy/workdir.h"

namespace {

constexpr std::uint32_t any_access = 7;

/// Asks the table about the user or program `name` and the path `path`.
void look_up(policy_table table, const std::string& name, const std::string& path)
{
    subject_label subject = {};
    object_label object = {};
    std::uint32_t state = 0;
    switch (file_of(table).form) {
    case policy_form::directories:
        (table == policy_table::dirctl ? sorvanic_kernel_dirctl_module : sorvanic_kernel_workdir_module)
            .search(path.c_str());
        break;
    case policy_form::process_names:
        sorvanic_kernel_ptpy_module.search(name.c_str());
        sorvanic_kernel_ptpy_module.match(path.c_str());
        break;
    case policy_form::subject_labels:
        sorvanic_kernel_sublabel_module.search(name.c_str(), &subject);
        break;
    case policy_form::object_labels:
        sorvanic_kernel_objlabel_module.search(path.c_str(), &object);
        break;
    case policy_form::user_rules:
        sorvanic_kernel_dacctl_module.match(name.c_str(), path.c_str(), any_access);
        break;
    case policy_form::privileges:
        sorvanic_kernel_privctl_module.match(name.c_str(), path.c_str(), any_access);
        break;
    case policy_form::program_rules:
        sorvanic_kernel_pracctl_module.match(path.c_str(), name.c_str(), any_access);
        break;
    case policy_form::users:
        fuzz::expect(sorvanic_kernel_uactivate_module.search(name.c_str(), &state) ==
                         sorvanic_kernel_uactivate_module.update(name.c_str(), 1),
                     "search and update know the same users");
        break;
    case policy_form::programs:
    case policy_form::status:
    case policy_form::audit_switches:
    case policy_form::module_switches:
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const policy_table table = fuzz::table_of(data[0]);
    const std::size_t asked = std::min<std::size_t>(data[1], size - 2);
    const auto* bytes = reinterpret_cast<const char*>(data + 2);
    const std::string name(bytes, asked);
    const std::string_view text(bytes + asked, size - 2 - asked);

    fuzz::serve_policy_text(table, text);
    fuzz::load(table);
    fuzz::expect(fuzz::entries(table) <= file_of(table).most_entries || file_of(table).most_entries == 1,
                 "a table holds no more than its limit");
    look_up(table, name, "/" + name);
    fuzz::destroy(table);
    return 0;
}
