#include "channel/audit_messages.h"

#include "channel/audit_records.h"
#include "channel/last_events.h"
#include "channel/record_counters.h"
#include "channel/socket.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"
#include "process/process_map.h"

using namespace kernel;

constinit std::atomic<u64> records_suppressed = 0;

namespace {

constexpr char home_directories[] = "/home/";
constexpr const char* system_directories[] = {"/etc/", "/lib/", "/lib64/"};

bool begins_with(const char* text, const char* start)
{
    return strncasecmp(text, start, strlen(start)) == 0;
}

/// No separator follows the name, so "/home/bobby" counts as the home of "bob" too.
bool is_at_home(const char* path, const char* user)
{
    return begins_with(path, home_directories) && begins_with(path + strlen(home_directories), user);
}

u32 class_of_path(const char* path, const char* user)
{
    if (is_at_home(path, user))
        return path_class_home;
    for (const char* directory : system_directories)
        if (begins_with(path, directory))
            return path_class_system;
    return path_class_other;
}

/// Copies text into a field of zeros, its last byte staying one.
template <std::size_t size>
void set_text(char (&field)[size], const char* text, std::size_t longest = size - 1)
{
    strncpy(field, text, longest);
}

/// Whether the record differs from the last one of its kind in its first `compared` bytes; if so, it becomes
/// the last one. `pre_event` is the caller's pointer to that buffer, used under the lock.
template <typename Record>
bool is_news(u32 index, void*& pre_event, const Record& record, std::size_t compared)
{
    const spin_guard guard(last_event_locks[index]);
    pre_event = sorvanic_kernel_singleaud_module.inside_getevent(index);
    if (pre_event == nullptr || memcmp(pre_event, &record, compared) == 0) {
        records_suppressed.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    memcpy(pre_event, &record, sizeof(record));
    return true;
}

/// Counts a record for which there is no memory.
int drop_record()
{
    records_dropped.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

template <typename Record>
int send_record(const Record& record, u32 kind)
{
    return sorvanic_kernel_socket_send_audit(&record, sizeof(record), kind);
}

struct access_report {
    const char* path;
    const char* user;
    const char* comm;
    u32 code;
};

/// The difference between the two kinds of access records.
struct access_kind {
    u32 kind;
    u32 last_event;
    const char* error;
};

constexpr access_kind faau = {audit_faau, last_faau, "send faau message error !\n"};
constexpr access_kind pcau = {audit_pcau, last_pcau, "send pcau message error !\n"};

int send_access_message(const access_kind& as, void*& pre_event, const access_report& report)
{
    const kmem<access_record> record;
    if (!record)
        return drop_record();
    set_text(record->path, report.path);
    set_text(record->process, report.comm, command_name_length);
    set_text(record->user, report.user);
    record->decision = report.code;
    record->path_class = begins_with(report.user, unknown_user_name)
                             ? path_class_no_user
                             : class_of_path(report.path, report.user);

    if (is_news(as.last_event, pre_event, *record.get(), sizeof(access_record)) &&
        send_record(*record.get(), as.kind) != 0)
        printk("%s", as.error);
    return 0;
}

} // namespace

int sorvanic_common_send_untp_message(const u32* key, const char* path, const char* comm)
{
    static constinit void* pre_event = nullptr; // under the kind's lock
    const kmem<untp_record> record;
    if (!record)
        return drop_record();
    char user[sorvanic_user_name_size] = {};
    const bool recorded = sorvanic_kernel_hashmap_module.search(task_pid(current_task()), user) == 0;
    record->key = *key;
    set_text(record->path, path);
    set_text(record->process, comm, command_name_length);
    record->path_class = recorded ? class_of_path(path, user) : path_class_no_user;

    if (is_news(last_untp, pre_event, *record.get(), sizeof(record->key)) &&
        send_record(*record.get(), audit_untp) != 0)
        printk("send untp message error !\n");
    return 0;
}

int sorvanic_common_send_faau_message(const char* path, const char* user, const char* comm, u32 code)
{
    static constinit void* pre_event = nullptr;
    return send_access_message(faau, pre_event, {path, user, comm, code});
}

int sorvanic_common_send_pcau_message(const char* path, const char* user, const char* comm, u32 code)
{
    static constinit void* pre_event = nullptr;
    return send_access_message(pcau, pre_event, {path, user, comm, code});
}

int sorvanic_common_send_syst_message(s32 requested, s32 current)
{
    const kmem<syst_record> record;
    if (!record)
        return drop_record();
    record->requested = static_cast<u32>(requested);
    record->current = static_cast<u32>(current);
    if (send_record(*record.get(), audit_syst) != 0)
        printk("send syst message error !\n");
    else
        printk("send syst message success: %d  %d\n", requested, current);
    return 0;
}
