#ifndef SORVANIC_REPLAY_WORLD_H
#define SORVANIC_REPLAY_WORLD_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/record.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/tasks.h"
#include "replay/event.h"
#include "replay/tree.h"

namespace replay {

struct options {
    std::string policy;           ///< directory of the policy files
    std::string root = "/";       ///< where programs and files are looked up
    std::optional<long long> now; ///< the time at which the clock stands; nothing: the host's clock
};

/// The answer to an event.
struct answer {
    std::optional<int> result; ///< 0 or -1; nothing for an event without a decision
    std::vector<std::string> log;
    std::vector<agent::record> audit; ///< what the connected agent has received
};

/// The id of the agent that connect_agent connects: one that no process of Linux can have.
inline constexpr int own_agent_pid = 4194304;

/// A machine on which only the engine runs: tasks come from events, files from a directory, netlink is in
/// memory. Only one may exist, because there is one stand-in kernel; its hooks run on the thread that calls
/// perform.
class world {
public:
    /// Starts the engine. Throws std::exception when a directory cannot be opened or the engine
    /// does not start.
    explicit world(const options& wanted);
    ~world();
    world(const world&) = delete;
    world& operator=(const world&) = delete;

    /// As a helo event of own_agent_pid, before the first event.
    void connect_agent();

    /// Performs the event. Throws bad_event, without an effect, when that is impossible: an unknown task, an
    /// id that is taken.
    answer perform(const event& what);

private:
    using result = std::optional<int>;
    result happen(const task_event& what);
    result happen(const fork_event& what);
    result happen(const exit_event& what);
    result happen(const exec_event& what);
    result happen(const file_event& what);
    result happen(const kill_event& what);
    result happen(const settime_event& what);
    result happen(const login_event& what);
    result happen(const reload_event& what);
    result happen(const message_event& what);

    static platform::task_handle task(int pid);
    static void check_free(int pid);
    void set_arguments(int pid, const argument_area& said);
    void send(int pid, std::uint16_t type, std::string_view payload = {});
    std::vector<agent::record> received();

    tree tree_;
    std::vector<std::string> log_;
    std::map<int, std::string> arguments_; ///< by task; an area that has once been told
    std::map<int, std::unique_ptr<platform::netlink_peer>> peers_; ///< sockets of agents
};

} // namespace replay

#endif
