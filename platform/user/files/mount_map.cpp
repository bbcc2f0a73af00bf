#include "platform/user/files/mount_map.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <map>
#include <mutex>
#include <utility>

#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/files/entries.h"

namespace platform {

namespace {

struct map_entry {
    std::string host_path = {};               // of a real directory, or
    std::shared_ptr<memory_node> memory = {}; // a memory directory or a served text
};

struct mount_map {
    std::mutex lock;
    std::map<std::string, map_entry, std::less<>> entries; // by kernel path, without a "/" at its end
    std::map<std::string, std::shared_ptr<memory_node>, std::less<>> files; // of memory directories
};

mount_map& the_map()
{
    static auto* map = new mount_map;
    return *map;
}

constexpr std::string_view symbol_file = "/proc/kallsyms";

std::string_view without_last_slashes(std::string_view path)
{
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

void add(std::string_view at, map_entry entry)
{
    mount_map& map = the_map();
    const std::lock_guard guard(map.lock);
    map.entries.insert_or_assign(std::string(without_last_slashes(at)), std::move(entry));
}

bool climbs(std::string_view path)
{
    for (std::size_t at = path.find("/.."); at != std::string_view::npos; at = path.find("/..", at + 1)) {
        if (at + 3 == path.size() || path[at + 3] == '/')
            return true;
    }
    return false;
}

bool is_directory(const memory_node& node)
{
    return (node.mode & S_IFMT) == S_IFDIR;
}

map_target resolve_in_memory(const mount_map& map, const std::shared_ptr<memory_node>& node,
                             std::string_view path, std::string_view below)
{
    if (!is_directory(*node)) {
        if (!below.empty())
            return {.error = -ENOTDIR};
        return {.memory = node, .read_only = true};
    }
    if (below.empty())
        return {.memory = node};
    if (below.find('/', 1) != std::string_view::npos)
        return {.error = -ENOENT};
    const auto found = map.files.find(path);
    if (found != map.files.end())
        return {.memory = found->second};
    return {.may_create = true};
}

bool find_in_map(const std::string& path, inode_facts& facts)
{
    const map_target target = resolve(path);
    if (target.memory != nullptr) {
        facts = target.memory->facts();
        return true;
    }
    struct stat found = {};
    if (target.host_path.empty() || ::stat(target.host_path.c_str(), &found) != 0)
        return false;
    facts = facts_of(found);
    return true;
}

} // namespace

name_space& kernel_names()
{
    static auto* names = new name_space(find_in_map);
    return *names;
}

void mount_directory(std::string_view at, std::string_view directory)
{
    add(at, {.host_path = std::string(directory)});
}

void mount_memory(std::string_view at)
{
    add(at, {.memory = std::make_shared<memory_node>(S_IFDIR | 0755)});
}

void serve_text(std::string_view at, std::string text)
{
    add(at, {.memory = std::make_shared<memory_node>(S_IFREG | 0444, std::move(text))});
}

void unmount_all()
{
    mount_map& map = the_map();
    const std::lock_guard guard(map.lock);
    map.entries.clear();
    map.files.clear();
}

std::optional<std::string> memory_file(std::string_view path)
{
    mount_map& map = the_map();
    const std::lock_guard guard(map.lock);
    const auto found = map.files.find(path);
    if (found == map.files.end())
        return std::nullopt;
    return found->second->content();
}

map_target resolve(std::string_view path)
{
    if (path.size() >= PATH_MAX)
        return {.error = -ENAMETOOLONG};
    if (!path.starts_with('/') || climbs(path))
        return {.error = -ENOENT};

    mount_map& map = the_map();
    std::unique_lock guard(map.lock);
    for (std::string_view at = without_last_slashes(path);; at = at.substr(0, at.find_last_of('/'))) {
        if (const auto found = map.entries.find(at); found != map.entries.end()) {
            const std::string_view below = path.substr(at.size());
            const map_entry& entry = found->second;
            if (entry.memory != nullptr)
                return resolve_in_memory(map, entry.memory, path, below);
            return {.host_path = entry.host_path + std::string(below)};
        }
        if (at.empty())
            break;
    }
    guard.unlock();
    if (path == symbol_file)
        return {.memory = std::make_shared<memory_node>(S_IFREG | 0444, symbol_text()), .read_only = true};
    return {.error = -ENOENT};
}

std::shared_ptr<memory_node> create_memory_file(std::string_view path, unsigned permissions)
{
    mount_map& map = the_map();
    const std::lock_guard guard(map.lock);
    auto& place = map.files[std::string(path)];
    if (place == nullptr)
        place = std::make_shared<memory_node>(S_IFREG | (permissions & 07777));
    return place;
}

} // namespace platform
