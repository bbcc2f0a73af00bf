#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/user/driver/faults.h"
#include "platform/user/driver/kernel_text.h"
#include "platform/user/driver/machine.h"

namespace platform {

namespace {

struct hidden_names {
    std::mutex lock;
    std::set<std::string, std::less<>> names;
};

hidden_names& hidden()
{
    static auto* names = new hidden_names;
    return *names;
}

struct symbol {
    std::uintptr_t address;
    char type;
    const char* name; // with what follows it on the line
};

template <typename T>
std::uintptr_t address_of(T* object)
{
    return reinterpret_cast<std::uintptr_t>(object);
}

} // namespace

void hide_symbol(std::string_view name)
{
    const std::lock_guard guard(hidden().lock);
    if (name.empty())
        hidden().names.clear();
    else
        hidden().names.emplace(name);
}

std::string symbol_text()
{
    // Around each real name, names that contain it; their addresses are nobody's.
    const std::vector<symbol> symbols = {
        {0xffffffff81000000, 'T', "_text"},
        {0xffffffff81066a10, 'T', "sys_do_exit"},
        {0xffffffff81066b20, 't', "do_exit_group"},
        {address_of(&do_exit), 'T', "do_exit"},
        {0xffffffff81067000, 't', "do_fork_idle"},
        {0xffffffff81067100, 'T', "__do_fork"},
        {address_of(&do_fork), 'T', "do_fork"},
        {0xffffffff81067200, 't', "__copy_process"},
        {0xffffffff81067300, 't', "copy_process.part.0"},
        {address_of(&copy_process), 't', "copy_process"},
        {0xffffffff81067400, 'T', "profile_task_exit_register"},
        {address_of(&profile_task_exit), 'T', "profile_task_exit"},
        {0xffffffff81a00000, 'd', "default_security_ops"},
        {0xffffffff81a00100, 'b', "security_ops_lock"},
        {address_of(&security_ops), 'D', "security_ops"},
        {0xffffffffa0001000, 't', "my_do_fork\t[tracer]"},
        {0xffffffffa0002000, 'T', "security_ops_register\t[tracer]"},
    };

    const std::lock_guard guard(hidden().lock);
    std::string text;
    for (const symbol& line : symbols) {
        if (hidden().names.contains(std::string_view(line.name)))
            continue;
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "%016lx %c ", line.address, line.type);
        text.append(prefix).append(line.name).append("\n");
    }
    return text;
}

} // namespace platform
