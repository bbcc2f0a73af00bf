#include "core/base/call_site.h"

#include "platform/kernel/string.h"
#include "platform/kernel/text.h"

using namespace kernel;

namespace {

constexpr unsigned char near_call = 0xE8;
constexpr unsigned long near_call_size = 5;

/// A byte of kernel text. Their checks are off, because sanitizers do not know text as an object.
__attribute__((no_sanitize("address", "thread"))) unsigned char text_byte(unsigned long address)
{
    return *reinterpret_cast<const volatile unsigned char*>(address);
}

unsigned long call_target(unsigned long site)
{
    u32 displacement = 0;
    for (unsigned long i = 0; i < 4; ++i)
        displacement |= static_cast<u32>(text_byte(site + 1 + i)) << (8 * i);
    return site + near_call_size +
           static_cast<unsigned long>(static_cast<s64>(static_cast<s32>(displacement)));
}

} // namespace

bool redirect_call(unsigned long caller, unsigned long target, unsigned long replacement)
{
    for (unsigned long site = caller; site <= caller + call_site_last_offset; ++site) {
        if (text_byte(site) != near_call || call_target(site) != target)
            continue;
        write_text(reinterpret_cast<void*>(site + 1),
                   static_cast<u32>(replacement - (site + near_call_size)));
        return true;
    }
    return false;
}
