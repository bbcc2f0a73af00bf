#include "process/process_map.h"

#include <atomic>
#include <random>
#include <set>
#include <string>

#include "tests/support/machine.h"
#include "tests/support/threads.h"

namespace {

const auto& map = sorvanic_kernel_hashmap_module;

class process_map : public testing::Test {
protected:
    process_map() { map.init(); }
    ~process_map() override
    {
        map.destroy();
        EXPECT_EQ(platform::live().allocations, 0u);
        platform::assert_thread_clean();
    }
};

using support::user_of;

TEST_F(process_map, keeps_31_characters_and_one_record_a_pid)
{
    EXPECT_EQ(map.insert(100, std::string(40, 'x').c_str()), 0);
    EXPECT_EQ(user_of(100), std::string(31, 'x'));
    EXPECT_EQ(map.insert(100, "second"), 0);
    EXPECT_EQ(user_of(100), "second") << "a shorter name must leave no trace of the longer one";
    EXPECT_EQ(platform::live().allocations, 1u);
    EXPECT_EQ(map.erase(100), 0);
    EXPECT_EQ(user_of(100), "-");
}

TEST_F(process_map, leaves_absent_records_alone)
{
    EXPECT_EQ(user_of(5), "-");
    EXPECT_EQ(map.erase(5), 0);
    char name[sorvanic_user_name_size] = "operator";
    EXPECT_EQ(map.handler(5, name), 0);
    EXPECT_EQ(user_of(5), "operator");
    char later[sorvanic_user_name_size] = "somebody else";
    EXPECT_EQ(map.handler(5, later), 0);
    EXPECT_EQ(user_of(5), "operator") << "a record stays";
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(map.insert(6, "lost"), -1);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(map.insert(5, "lost"), -1) << "without memory even a replacement is refused";
    platform::fail_call(platform::fault::allocation, 0);
    EXPECT_EQ(user_of(6), "-");
    EXPECT_EQ(user_of(5), "operator");
}

// Pids that share a bucket, and so a tree, among them 0 and 1000.
TEST_F(process_map, agrees_with_a_set_under_random_births_and_exits)
{
    std::mt19937 random(7); // NOLINT: the same run every time
    std::set<long> living;
    for (int i = 0; i < 20000; ++i) {
        const long pid = static_cast<long>(random() % 1500);
        if (random() % 2 == 0) {
            map.insert(pid, std::to_string(pid).c_str());
            living.insert(pid);
        } else {
            map.erase(pid);
            living.erase(pid);
        }
    }
    for (long pid = 0; pid < 1500; ++pid)
        ASSERT_EQ(user_of(pid), living.contains(pid) ? std::to_string(pid) : "-");
    EXPECT_EQ(platform::live().allocations, living.size());
    map.destroy();
    EXPECT_EQ(user_of(*living.begin()), "-");
}

// Births, exits, lookups and the end of all records at once, in the same sixteen buckets: a lookup gives
// the name that belongs to its pid or none, never half a name or another's.
TEST_F(process_map, gives_each_lookup_its_own_process)
{
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
            if (i % 100 == 0)
                map.destroy();
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
}

} // namespace
