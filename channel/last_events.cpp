#include "channel/last_events.h"

#include "channel/audit_records.h"
#include "platform/kernel/scoped.h"

using namespace kernel;

constinit spinlock_t last_event_locks[last_event_kinds] = {};

static constinit void* sorvanic_kernel_singleaud_untp = nullptr;
static constinit void* sorvanic_kernel_singleaud_pcau = nullptr;
static constinit void* sorvanic_kernel_singleaud_faau = nullptr;

namespace {

/// Where the pointer to a kind's buffer is, and the buffer's size.
struct event_buffer {
    void** pointer;
    std::size_t size;
};

constinit const event_buffer buffers[last_event_kinds] = {
    {&sorvanic_kernel_singleaud_untp, sizeof(untp_record)},
    {&sorvanic_kernel_singleaud_pcau, sizeof(access_record)},
    {&sorvanic_kernel_singleaud_faau, sizeof(access_record)},
};

void* exchange_buffer(u32 index, void* buffer)
{
    const spin_guard guard(last_event_locks[index]);
    void* former = *buffers[index].pointer;
    *buffers[index].pointer = buffer;
    return former;
}

} // namespace

static int sorvanic_kernel_singleaud_module_inside_init()
{
    for (u32 index = 0; index < last_event_kinds; ++index) {
        kmem<u8> buffer(buffers[index].size);
        if (!buffer)
            return -1;
        exchange_buffer(index, buffer.release());
    }
    return 0;
}

static void* sorvanic_kernel_singleaud_module_inside_getevent(u32 index)
{
    return index < last_event_kinds ? *buffers[index].pointer : nullptr;
}

static int sorvanic_kernel_singleaud_module_inside_destroy()
{
    for (u32 index = 0; index < last_event_kinds; ++index)
        kfree(exchange_buffer(index, nullptr));
    return 0;
}

constinit const sorvanic_last_event_operations sorvanic_kernel_singleaud_module = {
    .inside_init = sorvanic_kernel_singleaud_module_inside_init,
    .inside_getevent = sorvanic_kernel_singleaud_module_inside_getevent,
    .inside_destroy = sorvanic_kernel_singleaud_module_inside_destroy,
};
