#include "policy/encoded_file.h"

#include "core/base/klib.h"
#include "platform/kernel/scoped.h"
#include "policy/base64.h"

using namespace kernel;

static constexpr int empty_and_write = open_read_write | open_create | open_truncate;
static constexpr int chunk_size = 1328;

// The zeros behind a chunk end its run inside the buffer.
static constexpr std::size_t read_size = 2048;
static constexpr std::size_t decode_size = 1024;
static_assert(read_size > chunk_size && decode_size > chunk_size / 4 * 3);

static int sorvanic_base64_inside_defile(const char* encoded, const char* work)
{
    const kmem<char> text(read_size);
    if (!text)
        return 0;
    const kmem<char> plain(decode_size);
    if (!plain)
        return 0;
    const open_file from(encoded, open_read_only, 0);
    if (!from.is_open())
        return 0;
    const open_file to(work, empty_and_write, 0);
    if (!to.is_open())
        return 0;

    while (klib_fread(text.get(), chunk_size, from.get()) > 0) {
        const int decoded = sorvanic_kernel_base64decode(plain.get(), text.get());
        klib_fwrite(plain.get(), decoded, to.get());
        memset(text.get(), 0, read_size);
        memset(plain.get(), 0, decode_size);
    }
    return 0;
}

int sorvanic_kernel_base64defile(const char* encoded, const char* work)
{
    return sorvanic_base64_inside_defile(encoded, work);
}

static int sorvanic_kernel_base64unlink(const char* work)
{
    const open_file emptied(work, empty_and_write, 0);
    return 0;
}

int sorvanic_kernel_base64decover(const char* work)
{
    return sorvanic_kernel_base64unlink(work);
}
