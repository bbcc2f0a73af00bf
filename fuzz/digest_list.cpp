// A list of programs: the first byte picks which, the rest is the binary file.

#include <cstring>
#include <string>

#include "fuzz/machine.h"
#include "policy/blacklist.h"
#include "policy/sprolist.h"
#include "policy/whitelist.h"

namespace {

struct list {
    policy_table table;
    const digest_list_ops& ops;
};

const list lists[] = {{policy_table::whitelist, sorvanic_kernel_whitelist_module},
                      {policy_table::blacklist, sorvanic_kernel_blacklist_module},
                      {policy_table::supertrustfile, sorvanic_kernel_sprolist_module}};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const list& chosen = lists[data[0] % std::size(lists)];
    const std::string file(reinterpret_cast<const char*>(data + 1), size - 1);
    fuzz::serve_policy_file(chosen.table, file);
    fuzz::load(chosen.table);

    const std::uint32_t held = fuzz::entries(chosen.table);
    fuzz::expect(held == 0 || held == file.size() / 4, "a list is held whole or not at all");
    for (std::size_t at = 0; at + 4 <= file.size(); at += 4) {
        std::uint32_t key = 0;
        std::memcpy(&key, file.data() + at, sizeof key);
        fuzz::expect((chosen.ops.search(&key) == 0) == (held != 0), "a key of a list is found");
    }
    fuzz::destroy(chosen.table);
    return 0;
}
