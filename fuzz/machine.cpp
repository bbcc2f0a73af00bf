#include "fuzz/machine.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/user/driver/faults.h"
#include "platform/user/driver/files.h"
#include "policy/base64.h"
#include "policy/table_counters.h"
#include "policy/tables.h"

namespace fuzz {

void expect(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

void serve_policy_file(policy_table table, std::string text)
{
    platform::unmount_all();
    platform::mount_memory("/etc/sorvanic/kernel");
    platform::serve_text("/etc/sorvanic/" + std::string(file_of(table).name), std::move(text));
}

void serve_policy_text(policy_table table, std::string_view text)
{
    serve_policy_file(table, file_of(table).encoded ? encode(text) : std::string(text));
}

void load(policy_table table)
{
    const table_door& door = policy_doors[static_cast<std::size_t>(table)];
    (*door.init)();
    expect((*door.load)() == 0, "a file that is there can be loaded");
    (*door.sync)();
}

std::uint32_t entries(policy_table table)
{
    return counters_of(table).entries.load();
}

void destroy(policy_table table)
{
    (*policy_doors[static_cast<std::size_t>(table)].destroy)();
    expect(platform::live().allocations == 0, "a destroyed table holds no memory");
    expect_nothing_held();
}

policy_table table_of(std::uint8_t number)
{
    return policy_files[number % policy_tables].table;
}

std::string encode(std::string_view text)
{
    const int size = static_cast<int>(text.size());
    std::string out(static_cast<std::size_t>(sorvanic_kernel_base64encode_len(size)), '\0');
    const int written = sorvanic_kernel_base64encode(out.data(), text.data(), size);
    out.resize(static_cast<std::size_t>(written - 1)); // the count includes the terminator
    return out;
}

void expect_nothing_held()
{
    const platform::live_counts left = platform::live();
    expect(left.files == 0 && left.references == 0 && left.locks == 0, "nothing stays held");
    platform::assert_thread_clean();
}

} // namespace fuzz
