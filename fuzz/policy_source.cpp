// A policy source as people write it, for any table.
//
// The first byte picks the table, the rest is the text. The engine takes every entry of what is
// compiled without an error.

#include <string_view>

#include "fuzz/machine.h"
#include "source/table_text.h"

namespace {

/// Whether entries are counted: a status table has its values, whatever the file says.
bool is_counted(policy_form form)
{
    return form != policy_form::status && form != policy_form::audit_switches &&
           form != policy_form::module_switches;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const policy_file& file = file_of(fuzz::table_of(data[0]));
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    // A path in a list of programs is read; this machine's files are nobody's input.
    if (file.form == policy_form::programs && text.find('/') != std::string_view::npos)
        return 0;
    const source::compiled_file compiled = source::compile_policy_file(file, text);
    if (!compiled.errors.empty())
        return 0;
    fuzz::serve_policy_file(file.table, compiled.content);
    fuzz::load(file.table);
    if (is_counted(file.form))
        fuzz::expect(fuzz::entries(file.table) == compiled.entries, "the engine takes every entry");
    fuzz::destroy(file.table);
    return 0;
}
