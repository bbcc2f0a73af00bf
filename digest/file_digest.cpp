#include "digest/file_digest.h"

#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"

using namespace kernel;

namespace {

constexpr u32 read_size = 4096;

/// Moves a file to its start, and later back to its former position.
class rewound : not_copied {
public:
    explicit rewound(file* held) : file_(held), saved_(file_position(held)) { set_file_position(file_, 0); }
    ~rewound() { set_file_position(file_, saved_); }

private:
    file* file_;
    s64 saved_;
};

/// Feeds all that can be read. `buffer` has read_size bytes.
void update_from_start(md5_context* context, file* from, u8* buffer)
{
    const rewound start(from);
    const kernel_limit limit;
    // The position read at is this call's own: another user of the file object who moves the
    // shared one cannot make parts of the file escape the digest.
    s64 position = 0;
    for (;;) {
        memset(buffer, 0, read_size);
        const s64 size = file_read(from, reinterpret_cast<char*>(buffer), read_size, &position);
        if (size <= 0)
            return;
        set_file_position(from, position);
        sorvanic_kernel_md5sum_module_update(context, buffer, static_cast<u32>(size));
    }
}

} // namespace

int sorvanic_kernel_md5sum_module_handler(const char* path, u8* digest)
{
    const open_file opened(path, open_read_only, 0);
    return sorvanic_kernel_md5sum_module_halfhand(opened.get(), digest);
}

int sorvanic_kernel_md5sum_module_halfhand(file* opened, u8* digest)
{
    if (!is_object(opened) || !file_has_read(opened))
        return -1;

    md5_context context;
    sorvanic_kernel_md5sum_module_init(&context);
    const kmem<u8> buffer(uncleared, read_size); // cleared before each read
    if (!buffer) {
        // Both functions log the handler's name, because readers of the log expect this text.
        printk("sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n");
        return -1;
    }
    update_from_start(&context, opened, buffer.get());
    return sorvanic_kernel_md5sum_module_final(&context, digest);
}

constinit const md5sum_operations sorvanic_kernel_md5sum_module = {
    .init = sorvanic_kernel_md5sum_module_init,
    .update = sorvanic_kernel_md5sum_module_update,
    .final = sorvanic_kernel_md5sum_module_final,
    .handler = sorvanic_kernel_md5sum_module_handler,
    .halfhand = sorvanic_kernel_md5sum_module_halfhand,
};
