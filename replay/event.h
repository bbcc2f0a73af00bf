#ifndef SORVANIC_REPLAY_EVENT_H
#define SORVANIC_REPLAY_EVENT_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Written events: one JSON object a line (docs/events.md).

namespace replay {

/// A line that cannot be understood, or that asks for something impossible. The text says why, and what to
/// write instead.
class bad_event : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A task's argument bytes: each argument with a zero behind it.
using argument_area = std::optional<std::string>; ///< nothing: not said

struct task_event {
    int pid;
    int parent;
    std::string comm;
    std::optional<std::string> exe; ///< nothing: no address space
    argument_area arguments;
};

struct fork_event {
    int pid;
    int child;
};

struct exit_event {
    int pid;
};

struct exec_event {
    int pid;
    std::string path;
    std::string filename; ///< as the caller wrote it
    argument_area arguments;
};

enum class file_operation {
    create,
    symlink,
    link,
    unlink,
    mkdir,
    rmdir,
    rename,
    inode_permission,
    file_permission,
    setattr,
};

struct file_event {
    int pid;
    file_operation operation;
    std::string path;
    std::string to;     ///< link and rename: the new name; else empty or without meaning
    int mask;           ///< of the two permissions
    std::uint32_t mode; ///< of setattr, create and mkdir
};

struct kill_event {
    int pid;
    int target;
    int signal;
};

struct settime_event {
    int pid;
    std::int64_t seconds;
};

struct login_event {
    int pid;
    std::string user;
    std::uint32_t mode;
};

struct reload_event {
    int pid;
    std::uint32_t mask;
};

/// A message without a payload.
struct message_event {
    int pid;
    std::uint16_t type; ///< of channel/wire.h
};

using event = std::variant<task_event, fork_event, exit_event, exec_event, file_event, kill_event,
                           settime_event, login_event, reload_event, message_event>;

/// The event that a line describes. Throws bad_event.
event parse_event(std::string_view line);

} // namespace replay

#endif
