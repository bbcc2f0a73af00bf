#ifndef SORVANIC_TESTS_CHANNEL_MESSAGES_H
#define SORVANIC_TESTS_CHANNEL_MESSAGES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/user/driver/netlink.h"

// Messages as bytes, and a connected agent.

namespace messages {

/// Bytes, each as two hexadecimal digits.
inline std::string bytes(std::string_view hex)
{
    std::istringstream words{std::string(hex)};
    std::string out;
    for (std::string digits; words >> digits;)
        out += static_cast<char>(std::stoi(digits, nullptr, 16));
    return out;
}

inline std::string number(std::uint32_t value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline std::uint32_t number_at(std::string_view from, std::size_t offset)
{
    std::uint32_t value = 0;
    std::memcpy(&value, from.data() + offset, sizeof value);
    return value;
}

inline std::string text_at(std::string_view from, std::size_t offset)
{
    return {from.data() + offset};
}

/// A text in a field of that size.
inline std::string field(std::string text, std::size_t size)
{
    text.resize(size);
    return text;
}

/// A message of a type (above it, a record's kind) with a payload.
inline std::string of_type(unsigned type, std::string_view payload = {}, std::uint32_t port = 0)
{
    return number(static_cast<std::uint32_t>(16 + payload.size())) + number(type) + number(0) + number(port) +
           std::string(payload);
}

/// A record for the agent at this port.
inline std::string record(std::uint32_t kind, std::string_view payload, std::uint32_t port = 100)
{
    return of_type(19 | kind << 16, payload, port);
}

inline const std::string helo = of_type(16);
inline const std::string quit = of_type(17);

inline std::string reload(std::uint32_t mask)
{
    return of_type(18, number(1) + number(mask));
}

inline std::string login(std::uint32_t pid, std::uint32_t mode, std::string_view user)
{
    return of_type(18, number(2) + number(pid) + number(mode) + std::string(user) + '\0');
}

/// A process that has connected as the agent on the in-memory netlink.
class agent {
public:
    explicit agent(pid_t pid, std::size_t room = 48) : pid_(pid), peer_(static_cast<std::uint32_t>(pid), room)
    {
        EXPECT_EQ(platform::netlink_send(helo, pid_), 0);
    }
    ~agent() { platform::netlink_send(quit, pid_); }
    agent(const agent&) = delete;
    agent& operator=(const agent&) = delete;

    /// The next message, or "" when there is none.
    std::string next() { return peer_.receive().value_or(""); }

    std::size_t drain()
    {
        std::size_t count = 0;
        while (peer_.receive())
            ++count;
        return count;
    }

private:
    pid_t pid_;
    platform::netlink_peer peer_;
};

} // namespace messages

#endif
