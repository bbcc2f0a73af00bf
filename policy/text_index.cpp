#include "policy/text_index.h"

#include "platform/kernel/slab.h"
#include "platform/kernel/string.h"

using namespace kernel;

text_index* text_index::make(std::size_t entries, std::size_t keys)
{
    constexpr std::size_t most_memory = std::size_t{4} << 20; // that kmalloc has for one object
    if (entries > most_memory || keys > most_memory)
        return nullptr;
    std::size_t marks = 1;
    while (marks * mark_bits < keys * 16)
        marks *= 2;
    const std::size_t fixed = sizeof(text_index) + marks * sizeof(u64) + entries * sizeof(void*);
    if (fixed > most_memory)
        return nullptr;
    // Half of them free, if possible: the fewer, the longer is the way to the free one that ends a search.
    const std::size_t most_slots = (most_memory - fixed) / sizeof(slot);
    const std::size_t slots = keys < most_slots / 2 ? 2 * keys + 1 : most_slots;
    if (slots <= keys + keys / 8)
        return nullptr;
    auto* made = static_cast<text_index*>(kmalloc(fixed + slots * sizeof(slot), GFP_KERNEL));
    if (made == nullptr)
        return nullptr;
    memset(made, 0, fixed + slots * sizeof(slot));
    made->slots_ = static_cast<u32>(slots);
    made->marks_ = static_cast<u32>(marks);
    return made;
}
