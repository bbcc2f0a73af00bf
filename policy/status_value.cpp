#include "policy/status_value.h"

#include "policy/fields.h"
#include "policy/text_source.h"

using namespace kernel;

int load_status_value(const char* encoded, const char* work, status_word<s32>& status)
{
    text_source text(encoded, work);
    if (!text.is_open())
        return 1;

    if (char* rest = text.next_line()) {
        u32 value = 0;
        if (read_number(next_field(&rest, ':'), &value))
            status.store(static_cast<s32>(value), std::memory_order_relaxed);
    }
    return 0;
}
