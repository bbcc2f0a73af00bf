#ifndef SORVANIC_POLICY_TEXT_INDEX_H
#define SORVANIC_POLICY_TEXT_INDEX_H

#include <cstddef>

#include "platform/kernel/list.h"
#include "platform/kernel/types.h"

// Finds in a list, in a time that does not grow with it, the first entry for which a walk would stop.
//
// A key is the hash of a text by which an entry may be asked for. The index narrows the list down to the
// entries with that hash; the walk's own rule then judges these. So a collision costs time, never an answer.

/// The hash of a text, byte by byte. Texts that differ only in case have the same one.
class text_hash {
public:
    constexpr void add(char byte)
    {
        // Folds more bytes together than kernel::strncasecmp does, and all that it does.
        constexpr kernel::u8 case_bit = 0x20;
        value_ = (value_ ^ (static_cast<kernel::u8>(byte) | case_bit)) * 16777619U;
        ++length_;
    }
    constexpr void add(const char* text)
    {
        for (; *text != '\0'; ++text)
            add(*text);
    }
    /// Makes it the hash of a pair of texts; the length stays that of the first.
    constexpr void add(const text_hash& second) { value_ = (value_ ^ second.value()) * 16777619U; }

    /// Spread over all bits, so that texts which differ in little lie far apart.
    constexpr kernel::u32 value() const
    {
        kernel::u32 spread = value_;
        spread = (spread ^ spread >> 16) * 0x85ebca6bU;
        spread = (spread ^ spread >> 13) * 0xc2b2ae35U;
        return spread ^ spread >> 16;
    }
    constexpr kernel::u32 length() const { return length_; }

private:
    kernel::u32 value_ = 2166136261U;
    kernel::u32 length_ = 0;
};

inline text_hash hash_of(const char* text)
{
    text_hash hash;
    hash.add(text);
    return hash;
}

inline text_hash hash_of(const char* first, const char* second)
{
    text_hash hash = hash_of(first);
    hash.add(hash_of(second));
    return hash;
}

/// Calls `use` with the hash of each leading part of `path` that ends where a component does, from the
/// empty one on: every directory that covers the path is one of them. Parts of more than `longest` bytes
/// are left out.
template <typename Use>
void each_covering_part(const char* path, std::size_t longest, Use use)
{
    text_hash part;
    for (std::size_t at = 0; at <= longest; ++at) {
        if (path[at] == '\0' || path[at] == '/')
            use(part);
        if (path[at] == '\0')
            return;
        part.add(path[at]);
    }
}

/// The same with all leading parts of `path`, the empty one and the whole included.
template <typename Use>
void each_leading_part(const char* path, std::size_t longest, Use use)
{
    text_hash part;
    for (std::size_t at = 0; at <= longest; ++at) {
        use(part);
        if (path[at] == '\0')
            return;
        part.add(path[at]);
    }
}

/// The keys of one list's entries. Made by the loader, read by any number of threads after that; holds no
/// lock and owns no entry.
class text_index {
public:
    /// The place of an entry in its list, from 0; also: how many come before it.
    using place = kernel::u32;
    static constexpr place nowhere = ~place{0};

    /// Room for that many entries and keys; null without memory, and when there is so much of them that
    /// kmalloc has no block for it. Freed with kfree. May sleep.
    static text_index* make(std::size_t entries, std::size_t keys);

    /// Takes the list's next entry.
    void add(kernel::list_head* entry) { entries()[held_++] = entry; }

    /// Gives the entry that was added last a key, unless an earlier entry has it for which `same` is true:
    /// one that is found whenever this one is.
    template <typename Same>
    void add_key(const text_hash& text, Same same)
    {
        const kernel::u32 key = text.value();
        slot* at = slot_of(key);
        for (; at->taken != 0; at = next(at))
            if (at->key == key && same(entries()[at->taken - 1]))
                return;
        *at = {key, held_};
        mark_of(key) |= bit_of(key);
        longest_ = text.length() > longest_ ? text.length() : longest_;
    }

    /// The length of the longest key.
    std::size_t longest() const { return longest_; }

    /// The place of the first entry before `limit` that has the key and for which `is_wanted` is true, else
    /// `limit`.
    template <typename Wanted>
    place first(const text_hash& text, place limit, Wanted is_wanted) const
    {
        const kernel::u32 key = text.value();
        if ((mark_of(key) & bit_of(key)) == 0)
            return limit;
        for (const slot* at = slot_of(key); at->taken != 0; at = next(at))
            if (at->key == key && at->taken <= limit && is_wanted(entries()[at->taken - 1]))
                limit = at->taken - 1;
        return limit;
    }

    kernel::list_head* entry(place at) const { return entries()[at]; }

private:
    struct slot {
        kernel::u32 key;
        kernel::u32 taken; ///< by the entry at this place, plus 1; 0 is free
    };

    // Behind the object in its memory: the slots, of which some stay free; the marks, a bit in sixteen for
    // each key that there is, which most of a path's leading parts do not pass; and the entries.
    slot* slots() const { return reinterpret_cast<slot*>(const_cast<text_index*>(this) + 1); }
    kernel::u64* marks() const { return reinterpret_cast<kernel::u64*>(slots() + slots_); }
    kernel::list_head** entries() const { return reinterpret_cast<kernel::list_head**>(marks() + marks_); }

    // By the low bits, as slots are found by the high ones.
    kernel::u64& mark_of(kernel::u32 key) const { return marks()[key / mark_bits & (marks_ - 1)]; }
    static kernel::u64 bit_of(kernel::u32 key) { return kernel::u64{1} << key % mark_bits; }

    slot* slot_of(kernel::u32 key) const { return slots() + (kernel::u64{key} * slots_ >> 32); }
    slot* next(const slot* at) const
    {
        const auto after = static_cast<std::size_t>(at + 1 - slots());
        return slots() + (after == slots_ ? 0 : after);
    }

    static constexpr kernel::u32 mark_bits = 64;

    kernel::u32 slots_;
    kernel::u32 marks_; ///< a power of two
    kernel::u32 held_;  ///< entries
    kernel::u32 longest_;
};

#endif
