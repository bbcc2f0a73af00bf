#include "channel/audit_records.h"
#include "channel/reload_mask.h"
#include "channel/socket.h"
#include "channel/wire.h"
#include "core/base/proshell.h"
#include "enforce/install/install_tracking.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"
#include "policy/auditctl.h"
#include "policy/installctl.h"
#include "policy/statusctl.h"
#include "policy/uactivate.h"
#include "process/process_map.h"

using namespace kernel;

namespace {

/// A received message whose length has been checked.
struct received {
    const u8* payload;
    u32 size; // of the payload
    u16 type;
    u32 sender; // process id, as the kernel knows it
};

constexpr s32 install_status_permitted = 2;
constexpr s32 audit_switch_reload = 5;
constexpr u32 audit_switch_on = 2;

/// The struct at the start of the payload, which is long enough for it.
template <typename Fields>
Fields fields_of(const received& message)
{
    Fields fields;
    memcpy(&fields, message.payload, sizeof(fields));
    return fields;
}

void report_corrupt()
{
    printk("Received Corrupt Netlink Message\n");
}

void report_dropped(const received& message)
{
    printk("Dropping Netlink Message Of Unrecognized TYPE [%d] Process [%d]\n", message.type,
           static_cast<s32>(message.sender));
}

// --- The agent comes and goes ---

void connect_agent(const received& message)
{
    printk("Response Helo Request Success\n");
    bool refused = false;
    {
        const mutex_guard guard(sorvanic_kernel_socket_lock);
        const u32 agent = sorvanic_kernel_socket_process_pid.load(std::memory_order_relaxed);
        refused = agent != 0;
        if (refused) {
            printk("Process [%d] Exist,Process [%d] Connect To Kernel Failed\n", static_cast<s32>(agent),
                   static_cast<s32>(message.sender));
        } else {
            printk("Process [%d] Register\n", static_cast<s32>(message.sender));
            sorvanic_kernel_socket_process_pid.store(message.sender, std::memory_order_relaxed);
        }
    }
    if (refused)
        printk("Response Helo Request Failed\n");
}

void disconnect_agent(const received& message)
{
    printk("Response Quit Request Success\n");
    bool refused = false;
    {
        const mutex_guard guard(sorvanic_kernel_socket_lock);
        const u32 agent = sorvanic_kernel_socket_process_pid.load(std::memory_order_relaxed);
        printk("Process Pid [%d] Pid [%d]\n", static_cast<s32>(agent), static_cast<s32>(message.sender));
        refused = agent != message.sender;
        if (refused)
            printk("Process [%d] Exist, Process [%d] Connect To Kernel Failed", static_cast<s32>(agent),
                   static_cast<s32>(message.sender)); // the next text continues this line
        else
            sorvanic_kernel_socket_process_pid.store(0, std::memory_order_relaxed);
    }
    if (refused)
        printk("Response Quit Request Failed\n");
}

// --- Policy requests ---

/// The user name behind a login request's fields, or null when none ends inside the message.
const char* user_name_of(const received& message)
{
    for (u32 i = sizeof(login_request); i < message.size; ++i)
        if (message.payload[i] == 0)
            return reinterpret_cast<const char*>(message.payload + sizeof(login_request));
    return nullptr;
}

void report_reload(const char* user, u32 mask)
{
    plau_record record = {};
    memcpy(record.user, user, sizeof(record.user));
    record.mask = mask;
    record.result = 1;
    sorvanic_kernel_socket_send_audit(&record, sizeof(record), audit_plau);
    printk("send plau audit !\n");
}

static_assert(audit_user_size == sorvanic_user_name_size);

void reload(const reload_request& request)
{
    // A reload may change both, so the sender's user is looked up before it, and the audit switch after it.
    char user[sorvanic_user_name_size] = {};
    if (sorvanic_kernel_hashmap_module.search(task_pid(current_task()), user) != 0)
        memcpy(user, unknown_user_name, sizeof(unknown_user_name));
    reload_tables(request.mask);
    if (sorvanic_kernel_auditctl_module.getstatus(audit_switch_reload) == audit_switch_on &&
        sorvanic_kernel_statusctl_module.getstatus() == system_status_enforcing)
        report_reload(user, request.mask);
}

void record_login(const login_request& request, const char* name)
{
    const s32 login_pid = static_cast<s32>(request.login_pid);
    char recorded[sorvanic_user_name_size] = {};
    if (sorvanic_kernel_hashmap_module.search(login_pid, recorded) != 0) {
        strncpy(recorded, name, sizeof(recorded) - 1);
        sorvanic_kernel_hashmap_module.insert(login_pid, recorded);
    }
    if (request.mode == 0)
        sorvanic_kernel_uactivate_module.update(name, first_login_pending);
    printk("Username [%s] Login ID [%d] current PID [%d] Mode [%d]\n", name, login_pid,
           task_pid(current_task()), static_cast<s32>(request.mode));
    if (sorvanic_kernel_socket_inside_send_audit(nullptr, 0, message_login_done, 0, request.login_pid) != 0)
        printk("netlink response pam error \n");
}

void handle_policy_request(const received& message)
{
    if (message.size < sizeof(u32))
        return report_corrupt();
    const u32 sub_type = fields_of<u32>(message);
    const char* name = user_name_of(message);
    if ((sub_type == policy_reload && message.size < sizeof(reload_request)) ||
        (sub_type == policy_login && name == nullptr))
        return report_corrupt();

    printk("Response Policy Request Success\n");
    bool known = true;
    {
        const mutex_guard guard(sorvanic_kernel_socket_lock);
        if (sub_type == policy_reload) {
            reload(fields_of<reload_request>(message));
        } else if (sub_type == policy_login) {
            record_login(fields_of<login_request>(message), name);
        } else {
            printk("Recv Msg From Agent Error, TYPE[%d]\n", static_cast<s32>(sub_type));
            known = false;
        }
    }
    if (!known)
        printk("Response Policy Request Failed\n");
}

// --- The others ---

void end_install_phase()
{
    if (sorvanic_kernel_installctl_module.getstatus() == install_status_permitted)
        sorvanic_kernel_task_inside_super_proc_clean();
}

} // namespace

void sorvanic_kernel_socket_receive_netlink(sk_buff* message)
{
    const u8* bytes = skb_data(message);
    const u32 length = skb_length(message);
    wire_header header = {};
    if (length >= sizeof(header))
        memcpy(&header, bytes, sizeof(header));
    if (header.nlmsg_len < sizeof(header) || length < header.nlmsg_len)
        return report_corrupt();

    const received from = {
        .payload = bytes + sizeof(header),
        .size = header.nlmsg_len - static_cast<u32>(sizeof(header)),
        .type = header.nlmsg_type,
        .sender = netlink_sender_pid(message),
    };
    switch (from.type) {
    case message_helo:
        return connect_agent(from);
    case message_quit:
        return disconnect_agent(from);
    case message_policy:
        return handle_policy_request(from);
    case message_install_end:
        return end_install_phase();
    case message_silent:
        return;
    case message_shell_reset:
        sorvanic_kernel_proshell_module.resetkey();
        return;
    default:
        return report_dropped(from);
    }
}
