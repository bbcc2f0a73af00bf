#ifndef SORVANIC_POLICY_DIGEST_LIST_H
#define SORVANIC_POLICY_DIGEST_LIST_H

#include "core/base/klib.h"
#include "platform/kernel/list.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"
#include "policy/catalogue.h"
#include "policy/file_size.h"

// The common part of the three lists of program digests: binary files of 4-byte digest keys, held in hash
// tables over table_copies (`Copies` below).

/// One key. A record of the file is the key's four bytes, least significant first.
struct digest_entry {
    kernel::list_head link;
    kernel::u32 key;
    kernel::u32 record; ///< its place in the file, from 1
};

struct digest_file {
    const char* path;
    kernel::s32 most_records; ///< a file of more is ignored as a whole
    bool whole_records;       ///< ignore a file with 1 to 3 bytes at its end, instead of those bytes
};

/// How many keys the table's file may have.
constexpr kernel::s32 most_records_of(policy_table table)
{
    return static_cast<kernel::s32>(file_of(table).most_entries);
}

/// The key's list among `lists` (a power of two): h = 33 * h + byte over the key's bytes, from
/// the least significant on, starting at 0.
constexpr std::size_t digest_bucket(kernel::u32 key, std::size_t lists)
{
    kernel::u32 hash = 0;
    for (unsigned shift = 0; shift < 32; shift += 8)
        hash = hash * 33 + ((key >> shift) & 0xFF);
    return hash & (lists - 1);
}

/// 0 when the key is in the active copy, else 1. `record` gets its place in the file.
template <typename Copies>
int search_digest_list(const kernel::u32* key, kernel::u32* record)
{
    static_assert((Copies::lists & (Copies::lists - 1)) == 0);
    const kernel::u32 wanted = *key;
    const bool listed =
        Copies::walk(digest_bucket(wanted, Copies::lists), [wanted, record](const digest_entry& entry) {
            *record = entry.record;
            return entry.key == wanted;
        });
    return listed ? 0 : 1;
}

/// Reads the file's records into the idle copy; a record that occurs twice is held twice. A
/// file whose size breaks the rules is ignored without a message; a failed read ends the
/// loading with one, a failed allocation without, and what was read before stays. Returns 1
/// when the file cannot be opened, else 0.
template <typename Copies>
int load_digest_list(const digest_file& source)
{
    const kernel::open_file opened(source.path, kernel::open_read_only, 0);
    if (!opened.is_open())
        return 1;

    constexpr int record_size = sizeof(kernel::u32);
    // A size that is negative as a 32-bit number holds no records.
    const auto size = static_cast<kernel::s32>(file_size(opened.get()));
    const kernel::s32 records = size / record_size;
    if (records > source.most_records || (source.whole_records && size % record_size != 0))
        return 0;

    for (kernel::s32 n = 0; n < records; ++n) {
        kernel::u32 key = 0;
        if (klib_fread(reinterpret_cast<char*>(&key), record_size, opened.get()) != record_size) {
            kernel::printk("read [%s] error!\n", source.path);
            break;
        }
        kernel::kmem<digest_entry> entry;
        if (!entry)
            break;
        entry->key = key;
        entry->record = static_cast<kernel::u32>(n) + 1;
        Copies::append(entry.release(), digest_bucket(key, Copies::lists));
    }
    return 0;
}

#endif
