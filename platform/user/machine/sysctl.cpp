#include "platform/user/driver/sysctl.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>

#include "platform/kernel/sysctl.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"

namespace kernel {

struct ctl_table_header {
    ctl_table* table;
};

} // namespace kernel

namespace platform {

namespace {

struct registry {
    std::mutex lock; // also held while a handler runs
    std::list<kernel::ctl_table_header> headers;
};

registry& the_registry()
{
    static auto* one = new registry;
    return *one;
}

bool is_end(const kernel::ctl_table& entry)
{
    return entry.procname == nullptr;
}

/// The value at `path` below `table`, or null.
kernel::ctl_table* find_in(kernel::ctl_table* table, std::string_view path)
{
    const std::size_t slash = path.find('/');
    for (; !is_end(*table); ++table) {
        if (path.substr(0, slash) != table->procname)
            continue;
        const bool directory = table->child != nullptr;
        if (slash == path.npos)
            return directory ? nullptr : table;
        if (directory)
            return find_in(table->child, path.substr(slash + 1));
    }
    return nullptr;
}

kernel::ctl_table* find(registry& in, std::string_view path)
{
    for (const kernel::ctl_table_header& header : in.headers)
        if (kernel::ctl_table* found = find_in(header.table, path))
            return found;
    return nullptr;
}

constexpr kernel::u32 any_read_bit = 0444;
constexpr kernel::u32 any_write_bit = 0222;

/// The common part of both handlers: copies the text of a value.
int hand_out(const std::string& text, int write, char* buffer, std::size_t* size, kernel::s64* position)
{
    if (write != 0)
        return -EACCES;
    const auto from = std::min(static_cast<std::size_t>(*position), text.size());
    *size = std::min(*size, text.size() - from);
    std::memcpy(buffer, text.data() + from, *size);
    *position += static_cast<kernel::s64>(*size);
    return 0;
}

} // namespace

std::optional<std::string> sysctl_read(std::string_view path)
{
    registry& all = the_registry();
    const std::lock_guard guard(all.lock);
    kernel::ctl_table* entry = find(all, path);
    if (entry == nullptr || (entry->mode & any_read_bit) == 0)
        return std::nullopt;
    std::string text;
    char piece[64];
    kernel::s64 position = 0;
    std::size_t size = 0;
    do {
        size = sizeof piece;
        if (entry->proc_handler(entry, 0, piece, &size, &position) != 0)
            return std::nullopt;
        text.append(piece, size);
    } while (size == sizeof piece); // a short piece is the last: the value may be changing
    return text;
}

int sysctl_write(std::string_view path, std::string_view text)
{
    registry& all = the_registry();
    const std::lock_guard guard(all.lock);
    kernel::ctl_table* entry = find(all, path);
    if (entry == nullptr)
        return -ENOENT;
    if ((entry->mode & any_write_bit) == 0)
        return -EACCES;
    std::string copy(text);
    std::size_t size = copy.size();
    kernel::s64 position = 0;
    return entry->proc_handler(entry, 1, copy.data(), &size, &position);
}

} // namespace platform

namespace kernel {

ctl_table_header* register_sysctl_table(ctl_table* table)
{
    platform::might_sleep("register_sysctl_table");
    if (platform::fails_now(platform::fault::sysctl_register))
        return nullptr;
    platform::registry& all = platform::the_registry();
    const std::lock_guard guard(all.lock);
    all.headers.push_back({table});
    platform::count(platform::counted::allocations, 1);
    return &all.headers.back();
}

void unregister_sysctl_table(ctl_table_header* header)
{
    if (header == nullptr)
        return;
    platform::might_sleep("unregister_sysctl_table");
    platform::registry& all = platform::the_registry();
    const std::lock_guard guard(all.lock);
    if (all.headers.remove_if([&](const ctl_table_header& one) { return &one == header; }) == 0)
        platform::die("unregister_sysctl_table of a table that is not registered");
    platform::count(platform::counted::allocations, -1);
}

int proc_dointvec(ctl_table* table, int write, char* buffer, std::size_t* size, s64* position)
{
    const s32 value = __atomic_load_n(static_cast<const s32*>(table->data), __ATOMIC_RELAXED);
    return platform::hand_out(std::to_string(value) + "\n", write, buffer, size, position);
}

int proc_dostring(ctl_table* table, int write, char* buffer, std::size_t* size, s64* position)
{
    // Byte by byte: the value may be changing.
    const char* value = static_cast<const char*>(table->data);
    std::string text;
    for (int i = 0; i < table->maxlen; ++i) {
        const char byte = __atomic_load_n(value + i, __ATOMIC_RELAXED);
        if (byte == '\0')
            break;
        text += byte;
    }
    return platform::hand_out(text + "\n", write, buffer, size, position);
}

int sysctl_string(ctl_table* /*table*/, void* /*oldval*/, std::size_t* /*oldlen*/, void* /*newval*/,
                  std::size_t /*newlen*/)
{
    return -EINVAL; // entries have no numbers, so none can be asked for by number
}

} // namespace kernel
