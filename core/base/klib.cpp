#include "core/base/klib.h"

#include "platform/kernel/errno.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"

using namespace kernel;

static char s_buf[1024];

file* klib_fopen(const char* path, int flags, int mode)
{
    file* handle = filp_open(path, flags, mode);
    return is_object(handle) ? handle : nullptr;
}

void klib_fclose(file* handle)
{
    if (handle != nullptr)
        filp_close(handle, nullptr);
}

static int read_at_position(char* buffer, std::size_t length, file* handle)
{
    s64 position = file_position(handle);
    const s64 result = file_read(handle, buffer, length, &position);
    set_file_position(handle, position);
    return static_cast<int>(result);
}

int klib_fread(char* buffer, int length, file* handle)
{
    if (handle == nullptr)
        return -error_no_entry;
    if (!file_has_read(handle))
        return -error_no_function;
    if (length < 0)
        return -error_invalid;

    kernel_limit limit;
    return read_at_position(buffer, static_cast<std::size_t>(length), handle);
}

int klib_fwrite(const char* buffer, int length, file* handle)
{
    if (handle == nullptr)
        return -error_no_entry;
    if (!file_has_write(handle))
        return -error_no_function;
    if ((file_flags(handle) & open_access_mask) == open_read_only)
        return -error_access;
    if (length < 0)
        return -error_invalid;

    kernel_limit limit;
    s64 position = file_position(handle);
    const s64 result = file_write(handle, buffer, static_cast<std::size_t>(length), &position);
    set_file_position(handle, position);
    return static_cast<int>(result);
}

int klib_fgetc(file* handle)
{
    char byte = 0;
    const int got = klib_fread(&byte, 1, handle);
    if (got < 0)
        return got;
    return got == 0 ? -1 : static_cast<unsigned char>(byte);
}

int klib_fputc(int character, file* handle)
{
    const auto byte = static_cast<unsigned char>(character);
    const char text = static_cast<char>(byte);
    return klib_fwrite(&text, 1, handle) > 0 ? byte : -1;
}

int klib_fputs(const char* text, file* handle)
{
    return klib_fwrite(text, static_cast<int>(strlen(text)), handle);
}

char* klib_fgets(char* buffer, int size, file* handle)
{
    if (handle == nullptr || !file_has_read(handle) || (file_flags(handle) & open_write_only) != 0)
        return nullptr;

    kernel_limit limit;
    int stored = 0;
    int got = 0;
    // One byte a call, so that the file's position never passes the line's end.
    while (stored + 1 < size) {
        got = read_at_position(buffer + stored, 1, handle);
        if (got <= 0)
            break;
        if (buffer[stored++] == '\n')
            break;
    }
    buffer[stored] = '\0';
    return stored == 0 || got < 0 ? nullptr : buffer;
}

int klib_fseek(file* handle, int offset, int origin)
{
    if (handle == nullptr)
        return -error_no_entry;

    auto position = static_cast<u32>(file_position(handle));
    if (origin == 0)
        position = static_cast<u32>(offset);
    else if (origin == 1)
        position += static_cast<u32>(offset);

    const auto reached = static_cast<s32>(position);
    const s32 stored = reached < 0 ? 0 : reached;
    set_file_position(handle, stored);
    return stored;
}

void klib_fprintf(file* handle, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    vsnprintf(s_buf, sizeof s_buf, format, arguments);
    va_end(arguments);
    klib_fputs(s_buf, handle);
}
