#include "policy/fields.h"

#include "platform/kernel/string.h"

using namespace kernel;

char* next_field(char** rest, char separator)
{
    const char separators[] = {separator, '\0'};
    return strsep(rest, separators);
}

bool read_number(const char* field, u32* value)
{
    const auto low = static_cast<u32>(simple_strtoul(field, nullptr, 10));
    if (static_cast<s32>(low) < 0)
        return false;
    *value = low;
    return true;
}
