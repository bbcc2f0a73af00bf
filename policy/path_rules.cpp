#include "policy/path_rules.h"

#include "platform/kernel/string.h"

using namespace kernel;

bool in_tree(const char* directory, const char* path)
{
    const std::size_t length = strlen(directory);
    return strncasecmp(path, directory, length) == 0 && (path[length] == '\0' || path[length] == '/');
}

bool is_prefix(const char* start, const char* path)
{
    return strncasecmp(path, start, strlen(start)) == 0;
}

const char* final_component(const char* path)
{
    const char* slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}
