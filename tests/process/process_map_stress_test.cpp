#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "platform/user/driver/faults.h"
#include "process/process_map.h"
#include "tests/support/threads.h"

namespace {

// Births, exits and lookups of the same sixteen buckets at once: a lookup gives the name that
// belongs to its pid or none, never half a name or another's.
TEST(process_map_stress, gives_each_lookup_its_own_process)
{
    const auto& map = sorvanic_kernel_hashmap_module;
    map.init();
    std::atomic<bool> stop = false;
    std::atomic<long> wrong = 0, found = 0;
    const auto name_of = [](long pid) {
        return std::string(1 + static_cast<std::size_t>(pid) % 31, static_cast<char>('a' + pid % 26));
    };
    const auto write = [&](long writer) {
        // On a busy machine the readers may come to run late.
        for (long i = 0; i < 30000 || found == 0; ++i) {
            const long pid = (i * 2 + writer) % 64;
            map.insert(pid, name_of(pid).c_str());
            if (i % 3 == 0)
                map.erase(pid);
        }
        stop = true;
    };
    const auto read = [&] {
        for (long pid = 0; !stop; pid = (pid + 1) % 64) {
            char user[sorvanic_user_name_size] = {};
            if (map.search(pid, user) != 0)
                continue;
            ++found;
            wrong += user == name_of(pid) ? 0 : 1;
        }
    };
    support::at_once({[&] { write(0); }, [&] { write(1); }, read, read});
    EXPECT_EQ(wrong, 0);
    map.destroy();
    EXPECT_EQ(platform::live().allocations, 0u);
}

} // namespace
