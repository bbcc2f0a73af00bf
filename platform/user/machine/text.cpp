#include <cstdio>
#include <cstring>

#include "platform/kernel/string.h"

namespace {

constexpr unsigned char folded(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    const bool upper = (value >= 'A' && value <= 'Z') || (value >= 0xc0 && value <= 0xde && value != 0xd7);
    return static_cast<unsigned char>(upper ? value + 0x20 : value);
}

/// The value of a digit in a base up to 16, or 16 for any other byte.
constexpr unsigned digit_value(char byte)
{
    if (byte >= '0' && byte <= '9')
        return static_cast<unsigned>(byte - '0');
    if (byte >= 'a' && byte <= 'f')
        return static_cast<unsigned>(byte - 'a') + 10;
    if (byte >= 'A' && byte <= 'F')
        return static_cast<unsigned>(byte - 'A') + 10;
    return 16;
}

} // namespace

std::size_t kernel::strlen(const char* text)
{
    return ::strlen(text);
}

int kernel::strcmp(const char* a, const char* b)
{
    return ::strcmp(a, b);
}

int kernel::strncasecmp(const char* a, const char* b, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        const int difference = folded(a[i]) - folded(b[i]);
        if (difference != 0 || a[i] == '\0')
            return difference;
    }
    return 0;
}

char* kernel::strncpy(char* to, const char* from, std::size_t size)
{
    return ::strncpy(to, from, size);
}

const char* kernel::strrchr(const char* text, int byte)
{
    return ::strrchr(text, byte);
}

const char* kernel::strstr(const char* text, const char* part)
{
    return ::strstr(text, part);
}

char* kernel::strsep(char** text, const char* separators)
{
    return ::strsep(text, separators);
}

unsigned long kernel::simple_strtoul(const char* text, char** end, unsigned base)
{
    if (base == 16 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text += 2;
    unsigned long value = 0;
    for (; digit_value(*text) < base; ++text)
        value = value * base + digit_value(*text);
    if (end != nullptr)
        *end = const_cast<char*>(text);
    return value;
}

int kernel::vsnprintf(char* to, std::size_t size, const char* format, std::va_list arguments)
{
    return ::vsnprintf(to, size, format, arguments);
}
