#include "core/base/call_site.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t area_size = 4096;

/// A writable page that stands for a caller's text, filled with one-byte no-operations.
class caller_text : public testing::Test {
protected:
    caller_text()
        : bytes_(static_cast<std::uint8_t*>(
              ::mmap(nullptr, area_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        std::memset(bytes_, 0x90, area_size);
    }
    ~caller_text() override { ::munmap(bytes_, area_size); }

    unsigned long base() const { return reinterpret_cast<unsigned long>(bytes_); }
    unsigned long function(int n) const { return base() + 2048 + static_cast<unsigned long>(n) * 16; }

    void put_call(unsigned offset, unsigned long target)
    {
        const auto displacement = static_cast<std::uint32_t>(target - (base() + offset + 5));
        bytes_[offset] = 0xE8;
        std::memcpy(bytes_ + offset + 1, &displacement, 4);
    }
    unsigned long target_at(unsigned offset) const
    {
        std::int32_t displacement = 0;
        std::memcpy(&displacement, bytes_ + offset + 1, 4);
        return base() + offset + 5 + static_cast<unsigned long>(static_cast<long>(displacement));
    }
    std::vector<std::uint8_t> copy() const { return {bytes_, bytes_ + area_size}; }

    std::uint8_t* bytes_;
};

TEST_F(caller_text, only_the_first_call_of_the_target_changes)
{
    bytes_[3] = 0xE8; // an opcode byte inside something else
    put_call(20, function(1));
    put_call(40, function(2));
    put_call(60, function(2));
    const auto before = copy();
    EXPECT_TRUE(redirect_call(base(), function(2), function(3)));
    EXPECT_EQ(target_at(40), function(3));
    EXPECT_EQ(target_at(60), function(2));
    EXPECT_TRUE(redirect_call(base(), function(3), function(2)));
    EXPECT_EQ(copy(), before) << "the way back restores every byte";
}

TEST_F(caller_text, the_range_ends_with_offset_256)
{
    put_call(257, function(1));
    const auto before = copy();
    EXPECT_FALSE(redirect_call(base(), function(1), function(2)));
    EXPECT_EQ(copy(), before);
    std::memset(bytes_, 0x90, area_size);
    put_call(256, function(1));
    EXPECT_TRUE(redirect_call(base(), function(1), function(2)));
    EXPECT_EQ(target_at(256), function(2));
    EXPECT_TRUE(redirect_call(base() + 256, function(2), function(1))) << "and begins with 0";
}

} // namespace
