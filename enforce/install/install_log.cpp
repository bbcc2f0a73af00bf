#include "enforce/install/install_log.h"

#include "core/base/klib.h"
#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"

using namespace kernel;

namespace {

/// The path last written to a log, as far as it fits.
struct last_line {
    spinlock_t lock;
    char path[1024] K_GUARDED_BY(lock);
};

bool is_last(last_line& last, const char* path)
{
    const spin_guard guard(last.lock);
    return strncasecmp(path, last.path, sizeof last.path - 1) == 0;
}

void remember(last_line& last, const char* path)
{
    const spin_guard guard(last.lock);
    strncpy(last.path, path, sizeof last.path - 1);
}

file* open_log(const char* name)
{
    // The mode is a decimal number: 01130 in octal.
    return klib_fopen(name, open_write_only | open_create | open_append, 600);
}

void cut_temporary_suffix(char* path)
{
    const char* found = strrchr(path, ';');
    if (found != nullptr && found[1] >= '0' && found[1] <= '9')
        path[found - path] = '\0';
}

void key_text_of(file* program, char* text)
{
    u8 digest[md5_digest_size] = {};
    u32 key = 0;
    sorvanic_kernel_md5sum_module.halfhand(program, digest);
    sorvanic_common_make_16to4(digest, &key);
    digest_key_text(key, text);
}

} // namespace

int sorvanic_kernel_install_record(dentry* /*entry*/, char* path)
{
    static constinit last_line swinstall_event = {};

    cut_temporary_suffix(path);
    if (is_last(swinstall_event, path))
        return 0;
    file* log = open_log("/var/log/swinstall.log");
    if (log == nullptr)
        return 0;
    remember(swinstall_event, path);

    // Path and line end in one write, so that the lines of two writers do not mix.
    const std::size_t length = strlen(path);
    path[length] = '\n';
    klib_fwrite(path, static_cast<int>(length + 1), log);
    path[length] = '\0';
    klib_fclose(log);
    return 0;
}

int sorvanic_write_local_exec_log(file* program, const char* path)
{
    static constinit last_line swinstall_event = {};

    const std::size_t length = strlen(path);
    const std::size_t line_length = length + 1 + digest_key_text_size; // the line end is its terminator
    const kmem<char> line(line_length);
    if (!line || program == nullptr)
        return 0;
    char* key = line.get() + length + 1;
    key_text_of(program, key);
    if (is_last(swinstall_event, path))
        return 0;
    file* log = open_log("/var/log/swinstall_exec.log");
    if (log == nullptr)
        return 0;
    remember(swinstall_event, path);

    memcpy(line.get(), path, length);
    line.get()[length] = '\t';
    line.get()[line_length - 1] = '\n';
    klib_fwrite(line.get(), static_cast<int>(line_length), log);
    klib_fclose(log);
    return 0;
}
