#include "policy/digest_list.h"

#include <cstdint>
#include <filesystem>
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
    std::vector<std::uint32_t> keys;
    for (std::uint32_t n = 0; n < count; ++n)
        keys.push_back(n * 2654435761u);
    return keys;
}

class digest_lists : public policy_fixture {};

TEST_F(digest_lists, sizes_at_their_limits)
{
    for (const list& tested : lists) {
        const auto most = static_cast<std::uintmax_t>(tested.most);
        const struct {
            std::uintmax_t bytes;
            std::size_t records;
        } cases[] = {
            {0, 0},
            {3, 0},
            {4, 1},
            {10, tested.takes_a_remainder ? 2u : 0u},
            {4 * most, most},
            {4 * most + 3, tested.takes_a_remainder ? most : 0u},
            {4 * most + 4, 0},
            {std::uintmax_t{1} << 31, 0},
            {(std::uintmax_t{1} << 32) + 8, 2}, // the size is a signed 32-bit number
        };
        const auto file = machine_.real(std::string("/etc/sorvanic/") + tested.file);
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(tested.file) + " of " + std::to_string(c.bytes));
            machine_.keys(tested.file, distinct_keys(tested.most + 1));
            std::filesystem::resize_file(file, c.bytes);
            EXPECT_EQ(tested.ops.load(), 0);
            EXPECT_EQ(entries(), c.records);
            tested.ops.unload();
        }
    }
    EXPECT_EQ(machine_.log(), "");
}

TEST_F(digest_lists, every_record_is_found_and_nothing_else)
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
            EXPECT_TRUE(listed(tested.ops, key));
            EXPECT_FALSE(listed(tested.ops, key ^ 0x00010000));
        }
        tested.ops.sync();
        tested.ops.unload();
        EXPECT_EQ(entries(), 0u);
    }
}

TEST_F(digest_lists, the_lists_do_not_share)
{
    for (const list& filled : lists) {
        machine_.keys(filled.file, {0x04030201});
        sorvanic_kernel_policy_module.reload();
        for (const list& asked : lists)
            EXPECT_EQ(listed(asked.ops, 0x04030201), asked.file == filled.file);
        machine_.remove(std::string("/etc/sorvanic/") + filled.file);
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
    machine_.remove("/etc/sorvanic/supertrustfile");
    table.unload();
    table.load();
    EXPECT_FALSE(super_process_list_is_empty());
    table.sync();
    EXPECT_TRUE(super_process_list_is_empty());
    table.sync();
    EXPECT_FALSE(super_process_list_is_empty()) << "the former list is back";
}

TEST(digest_bucket, least_significant_byte_first)
{
    EXPECT_EQ(digest_bucket(0x04030201, 65536), 38218u);
    EXPECT_EQ(digest_bucket(0x04030201, 8192), 5450u);
    EXPECT_EQ(digest_bucket(0x04030201, 4096), 1354u);
    EXPECT_EQ(digest_bucket(0, 65536), 0u);
    EXPECT_EQ(digest_bucket(0xffffffff, 65536), (255u * (35937 + 1089 + 33 + 1)) & 0xffffu);
}

TEST_F(digest_lists, failures_keep_the_records_before_them)
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
    const auto expect_first = [&](std::size_t count) {
        for (std::size_t n = 0; n < keys.size(); ++n)
            EXPECT_EQ(listed(whitelist, keys[n]), n < count) << keys[n];
    };
    fail_each_call(platform::fault::allocation, load, [&](std::size_t n) {
        EXPECT_EQ(result, 0);
        expect_first(n == 0 ? 3 : n - 1);
        EXPECT_EQ(machine_.log(), "");
    });
    fail_each_call(platform::fault::read, load, [&](std::size_t n) {
        EXPECT_EQ(result, 0);
        expect_first(n == 0 ? 3 : n - 1);
        EXPECT_EQ(machine_.log(), n == 0 ? "" : "read [/etc/sorvanic/whitelist] error!\n");
    });
    fail_each_call(platform::fault::open, load, [&](std::size_t n) {
        EXPECT_EQ(result, n == 0 ? 0 : 1);
        expect_first(n == 0 ? 3 : 0);
        EXPECT_EQ(machine_.log(), "");
    });
}

} // namespace
