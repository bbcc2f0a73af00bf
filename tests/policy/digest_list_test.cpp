#include "policy/digest_list.h"

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

#include "policy/blacklist.h"
#include "policy/sprolist.h"
#include "policy/whitelist.h"
#include "tests/policy/policy_fixture.h"

namespace {

struct list {
    const char* file;
    const digest_list_ops& ops;
    unsigned most;
    bool takes_a_remainder;
};

const list lists[] = {
    {"blacklist", sorvanic_kernel_blacklist_module, 4096, true},
    {"whitelist", sorvanic_kernel_whitelist_module, 65536, false},
    {"supertrustfile", sorvanic_kernel_sprolist_module, 8192, false},
};

bool listed(const digest_list_ops& ops, std::uint32_t key)
{
    return ops.search(&key) == 0;
}

std::vector<std::uint32_t> distinct_keys(std::uint32_t count)
{
    std::vector<std::uint32_t> keys(count);
    for (std::uint32_t n = 0; n < count; ++n)
        keys[n] = n * 2654435761u;
    return keys;
}

class digest_lists : public policy_fixture {};

TEST_F(digest_lists, take_files_up_to_their_limit)
{
    for (const list& tested : lists) {
        const std::uintmax_t most = tested.most;
        const bool cut = tested.takes_a_remainder;
        const std::pair<std::uintmax_t, std::size_t> sizes[] = {
            {0, 0},
            {3, 0},
            {4, 1},
            {10, cut ? 2u : 0u},
            {4 * most, most},
            {4 * most + 3, cut ? most : 0u},
            {4 * most + 4, 0},
            {std::uintmax_t{1} << 31, 0},
            {(std::uintmax_t{1} << 32) + 8, 2}, // the size is a signed 32-bit number
        };
        for (const auto& [bytes, records] : sizes) {
            SCOPED_TRACE(std::string(tested.file) + " of " + std::to_string(bytes));
            machine_.keys(tested.file, distinct_keys(tested.most + 1));
            std::filesystem::resize_file(machine_.real(std::string("/etc/sorvanic/") + tested.file), bytes);
            EXPECT_EQ(tested.ops.load(), 0);
            EXPECT_EQ(entries(), records);
            tested.ops.unload();
        }
    }
    EXPECT_EQ(machine_.log(), "");
}

TEST_F(digest_lists, every_record_is_found_in_its_own_list_and_nothing_else)
{
    for (const list& tested : lists) {
        std::vector<std::uint32_t> keys = distinct_keys(1000);
        keys.push_back(keys.front());
        machine_.keys(tested.file, keys);
        ASSERT_EQ(tested.ops.load(), 0);
        EXPECT_FALSE(listed(tested.ops, keys[0])); // not active yet
        tested.ops.sync();
        EXPECT_EQ(entries(), keys.size());
        for (const std::uint32_t key : keys) {
            for (const list& asked : lists)
                EXPECT_EQ(listed(asked.ops, key), asked.file == tested.file);
            EXPECT_FALSE(listed(tested.ops, key ^ 0x00010000));
        }
        tested.ops.sync();
        tested.ops.unload();
        EXPECT_EQ(entries(), 0u);
    }
}

TEST_F(digest_lists, emptiness_of_the_super_process_list_is_that_of_the_active_copy)
{
    const auto& table = sorvanic_kernel_sprolist_module;
    EXPECT_TRUE(super_process_list_is_empty());
    machine_.keys("supertrustfile", {0x04030201});
    table.load();
    EXPECT_TRUE(super_process_list_is_empty());
    table.sync();
    EXPECT_FALSE(super_process_list_is_empty());
    table.load();
    EXPECT_FALSE(super_process_list_is_empty());
    table.unload();
    table.sync();
    EXPECT_TRUE(super_process_list_is_empty());
    table.sync();
    EXPECT_FALSE(super_process_list_is_empty()) << "the former list is back";
}

TEST(digest_bucket, takes_the_least_significant_byte_first)
{
    EXPECT_EQ(digest_bucket(0x04030201, 65536), 38218u);
    EXPECT_EQ(digest_bucket(0x04030201, 4096), 1354u);
    EXPECT_EQ(digest_bucket(0xffffffff, 65536), (255u * (35937 + 1089 + 33 + 1)) & 0xffffu);
}

TEST_F(digest_lists, keep_the_records_read_before_a_failure)
{
    const std::vector<std::uint32_t> keys = {1, 2, 3};
    machine_.keys("whitelist", keys);
    const digest_list_ops& whitelist = sorvanic_kernel_whitelist_module;
    int result = -1;
    const auto load = [&] {
        whitelist.unload();
        result = whitelist.load();
        whitelist.sync();
    };
    for (const fault kind : {fault::allocation, fault::read, fault::open})
        fail_each_call(kind, load, [&](std::size_t n) {
            const std::size_t left = n == 0 ? 3 : n - 1;
            for (std::size_t i = 0; i < keys.size(); ++i)
                EXPECT_EQ(listed(whitelist, keys[i]), i < left) << keys[i];
            EXPECT_EQ(result, kind == fault::open && n != 0 ? 1 : 0);
            EXPECT_EQ(machine_.log(),
                      kind == fault::read && n != 0 ? "read [/etc/sorvanic/whitelist] error!\n" : "");
        });
}

} // namespace
