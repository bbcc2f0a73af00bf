// Files that the engine opens: under the host's root with the kernel's own credentials, because a program
// may be executable without being readable by who starts it.
//
// Its logs are not opened where it writes them. A hook may hold the lock of the very directory that the log
// lies in, or a file system's freeze protection: the lines go to a worker, in order.

#include <linux/cred.h>
#include <linux/file.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/workqueue.h>

#include "platform.h"

struct log_line {
    struct work_struct work;
    size_t size;
    char* path;
    char bytes[];
};

static const struct cred* kernel_rights;
static struct workqueue_struct* log_writer;

static struct file* open_below_root(const char* path, int flags, umode_t mode)
{
    const struct cred* const own = override_creds(kernel_rights);
    struct file* const opened = file_open_root(&host_root, path, flags | O_LARGEFILE, mode);

    revert_creds(own);
    return opened;
}

/// The file that `path` was the name of when the engine got it in this event, or null.
static struct file* open_remembered(const char* path)
{
    struct event* const event = current_event();
    unsigned i;

    for (i = 0; event != NULL && i < event->names; ++i)
        if (strcmp(event->named[i].text, path) == 0)
            return dentry_open(&event->named[i].place, O_RDONLY | O_LARGEFILE, kernel_rights);
    return NULL;
}

static struct file* serve(const char* path, char* text)
{
    const size_t size = strlen(path) + 1;
    struct served_file* const made = kzalloc(sizeof *made + size, GFP_KERNEL);

    if (made == NULL) {
        kfree(text);
        return ERR_PTR(-ENOMEM);
    }
    made->text = text;
    memcpy(made->path, path, size);
    return (struct file*)((unsigned long)made | 1);
}

static void write_log_line(struct work_struct* work)
{
    struct log_line* const line = container_of(work, struct log_line, work);
    struct event event;
    const bool entered = enter_event(&event, false);
    struct file* const log = open_below_root(line->path, O_WRONLY | O_CREAT | O_APPEND, 01130);
    loff_t position = 0;

    if (IS_ERR(log) || kernel_write(log, line->bytes, line->size, &position) != (ssize_t)line->size)
        pr_warn_ratelimited("sorvanic: cannot write %s\n", line->path);
    if (!IS_ERR(log))
        filp_close(log, NULL);
    if (entered)
        leave_event(&event);
    kfree(line);
}

static s64 defer_log_line(const struct served_file* log, const char* bytes, size_t size)
{
    struct log_line* const line = kmalloc(sizeof *line + size + strlen(log->path) + 1, GFP_KERNEL);

    if (line == NULL)
        return -ENOMEM;
    INIT_WORK(&line->work, write_log_line);
    line->size = size;
    memcpy(line->bytes, bytes, size);
    line->path = strcpy(line->bytes + size, log->path);
    queue_work(log_writer, &line->work);
    return (s64)size;
}

int begin_files(void)
{
    kernel_rights = prepare_kernel_cred(NULL);
    if (kernel_rights == NULL)
        return -ENOMEM;
    log_writer = alloc_ordered_workqueue("sorvanic_log", 0);
    if (log_writer == NULL) {
        put_cred(kernel_rights);
        return -ENOMEM;
    }
    return 0;
}

void end_files(void)
{
    destroy_workqueue(log_writer);
    put_cred(kernel_rights);
}

struct file* k_filp_open(const char* path, int flags, int mode)
{
    struct file* opened;

    if (strcmp(path, "/proc/kallsyms") == 0) {
        char* const text = symbol_list();

        return text != NULL ? serve(path, text) : ERR_PTR(-ENOMEM);
    }
    if ((flags & O_APPEND) != 0)
        return serve(path, NULL);
    opened = (flags & O_ACCMODE) == O_RDONLY ? open_remembered(path) : NULL;
    return opened != NULL ? opened : open_below_root(path, flags, mode & S_IALLUGO);
}

int k_filp_close(struct file* closed, void* owner)
{
    struct served_file* const own = served(closed);

    if (own == NULL)
        return filp_close(closed, owner);
    kfree(own->text);
    kfree(own);
    return 0;
}

bool k_file_has_read(const struct file* of)
{
    // What kernel_read takes without a warning.
    return served(of) != NULL || (of->f_op->read_iter != NULL && of->f_op->read == NULL);
}

bool k_file_has_write(const struct file* of)
{
    return served(of) != NULL || (of->f_op->write_iter != NULL && of->f_op->write == NULL);
}

s64 k_file_read(struct file* from, char* buffer, size_t size, s64* position)
{
    const struct served_file* const own = served(from);

    if (own == NULL)
        return kernel_read(from, buffer, size, position);
    if (own->text == NULL)
        return -EBADF;
    return memory_read_from_buffer(buffer, size, position, own->text, strlen(own->text));
}

s64 k_file_write(struct file* to, const char* buffer, size_t size, s64* position)
{
    const struct served_file* const own = served(to);

    return own != NULL ? defer_log_line(own, buffer, size) : kernel_write(to, buffer, size, position);
}

s64 k_file_position(const struct file* of)
{
    const struct served_file* const own = served(of);

    return own != NULL ? own->position : of->f_pos;
}

void k_set_file_position(struct file* of, s64 position)
{
    struct served_file* const own = served(of);

    if (own != NULL)
        own->position = position;
    else
        of->f_pos = position;
}

int k_file_flags(const struct file* of)
{
    return served(of) != NULL ? O_WRONLY : of->f_flags;
}

struct path k_file_path(const struct file* of)
{
    return served(of) != NULL ? (struct path){} : of->f_path;
}

struct inode* k_file_inode(const struct file* of)
{
    return served(of) != NULL ? NULL : file_inode(of);
}

// There is no address limit any more: kernel_read and kernel_write take kernel memory.
unsigned k_get_fs(void)
{
    return 0;
}

void k_set_fs(unsigned limit)
{
}
