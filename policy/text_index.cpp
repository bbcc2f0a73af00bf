#include "policy/text_index.h"

#include "platform/kernel/slab.h"
#include "platform/kernel/string.h"

using namespace kernel;

text_index* text_index::make(std::size_t entries, std::size_t keys)
{
    constexpr std::size_t most = u32{1} << 24; // far above what kmalloc gives, and nothing below overflows
    if (entries > most || keys > most)
        return nullptr;
    const std::size_t slots = keys + keys / 3 + 1;
    const std::size_t cleared = sizeof(text_index) + slots * sizeof(slot);
    auto* made = static_cast<text_index*>(kmalloc(cleared + entries * sizeof(list_head*), GFP_KERNEL));
    if (made == nullptr)
        return nullptr;
    memset(made, 0, cleared);
    made->slots_ = static_cast<u32>(slots);
    return made;
}
