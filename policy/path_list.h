#ifndef SORVANIC_POLICY_PATH_LIST_H
#define SORVANIC_POLICY_PATH_LIST_H

#include <cstddef>

#include "platform/kernel/list.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/catalogue.h"
#include "policy/fields.h"
#include "policy/path_rules.h"
#include "policy/text_index.h"
#include "policy/text_source.h"

// Lists of paths, one a line and taken whole, in the file's order, over table_copies (`Copies`
// below).

struct path_entry {
    kernel::list_head link;
    kernel::u32 line; ///< in the file
    char text[512];   ///< zero-terminated
};

/// The most characters a line may have; longer ones are skipped.
inline constexpr std::size_t longest_path_line = sizeof(path_entry::text) - 1;

/// The most lines that are taken from a file; the rest is not read.
inline constexpr unsigned most_path_lines = 8193;

static_assert(file_of(policy_table::dirctl).most_entries == most_path_lines &&
              file_of(policy_table::workdir).most_entries == most_path_lines &&
              file_of(policy_table::ptpylist).most_entries == most_path_lines);
static_assert(file_of(policy_table::dirctl).longest_line == longest_path_line &&
              file_of(policy_table::workdir).longest_line == longest_path_line &&
              file_of(policy_table::ptpylist).longest_line == longest_path_line);

/// What a failed allocation loses while a list is read.
enum class without_memory {
    stop,      ///< this line and all after it
    skip_line, ///< this line, which still counts as taken
};

/// Reads the lines of `text` into the idle copy. What was read before a failure stays.
template <typename Copies>
void load_path_list(text_source& text, without_memory failed)
{
    for (unsigned taken = 0; taken < most_path_lines; ++taken) {
        const char* line = text.next_line(longest_path_line);
        if (line == nullptr)
            return;
        kernel::kmem<path_entry> entry;
        if (!entry) {
            if (failed == without_memory::stop)
                return;
            continue;
        }
        kernel::strncpy(entry->text, line, longest_path_line);
        entry->line = text.line_number();
        Copies::append(entry.release());
    }
}

/// A directory is asked for by the parts of a path that it covers.
template <typename Copies>
void index_directories()
{
    Copies::index_idle([](const path_entry& entry, auto add) {
        add(hash_of(entry.text),
            [&entry](const path_entry& earlier) { return equals_field(earlier.text, entry.text); });
    });
}

/// 0 when `path` is a directory of the active copy or lies below one, else 1. `line` gets that entry's line,
/// and `size`, which may be null, the bytes of its path.
template <typename Copies>
int search_directories(const char* path, kernel::u32* line, kernel::u32* size = nullptr)
{
    const auto parts = [path](std::size_t longest, auto probe) { each_covering_part(path, longest, probe); };
    const bool listed = Copies::find(
        parts, [path](const path_entry& entry) { return in_tree(entry.text, path); },
        [line, size](const path_entry& entry) {
            *line = entry.line;
            if (size != nullptr)
                *size = static_cast<kernel::u32>(kernel::strlen(entry.text));
        });
    return listed ? 0 : 1;
}

#endif
