#include "core/base/symbols.h"

#include "platform/kernel/scoped.h"

using namespace kernel;

namespace {

constexpr int line_size = 128;
constexpr int address_digits = 16;

int hexadecimal_digit(char byte)
{
    if (byte >= '0' && byte <= '9')
        return byte - '0';
    if (byte >= 'a' && byte <= 'f')
        return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F')
        return byte - 'A' + 10;
    return -1;
}

/// Reads the next line, its newline included, into the zero-filled `line`; what exceeds 127
/// bytes is left for the next call. Returns whether there may be more.
bool read_line(file* from, char* line)
{
    memset(line, 0, line_size);
    s64 position = file_position(from);
    bool more = true;
    for (int i = 0; i < line_size - 1 && more; ++i) {
        char byte = 0;
        more = file_read(from, &byte, 1, &position) > 0;
        if (!more)
            break;
        line[i] = byte;
        if (byte == '\n')
            break;
    }
    set_file_position(from, position);
    return more;
}

bool ends_token(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\0';
}

/// Whether the first place where `name` stands in `line` is a whole field behind a blank. Later places do not
/// matter, because a symbol file has one name a line.
bool names_symbol(const char* line, const char* name)
{
    const char* found = strstr(line, name);
    if (found == nullptr || found == line)
        return false;
    const char before = found[-1];
    return (before == ' ' || before == '\t') && ends_token(found[strlen(name)]);
}

} // namespace

unsigned long get_sym_address(const char* line)
{
    unsigned long address = 0;
    for (int i = 0; i < address_digits; ++i) {
        const int digit = hexadecimal_digit(line[i]);
        if (digit < 0)
            break;
        address = address * 16 + static_cast<unsigned long>(digit);
    }
    return address;
}

unsigned long find_symbol_addr(const char* name)
{
    const open_file symbols("/proc/kallsyms", open_read_only, 0);
    if (!symbols.is_open())
        return 0;
    const kernel_limit limit;

    char line[line_size];
    bool more = true;
    while (more) {
        more = read_line(symbols.get(), line);
        if (names_symbol(line, name))
            return get_sym_address(line);
    }
    return 0;
}
