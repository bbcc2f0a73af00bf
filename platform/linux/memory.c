// Memory and text: thin, because the kernel's own functions do what the interface says.

#include <linux/rbtree.h>
#include <linux/slab.h>
#include <linux/string.h>

enum { engine_may_sleep = 0 };

static gfp_t kernel_flags(unsigned how)
{
    return (how == engine_may_sleep ? GFP_KERNEL : GFP_ATOMIC) | __GFP_NOWARN;
}

void* k_kmalloc(size_t size, unsigned how)
{
    return kmalloc(size, kernel_flags(how));
}

void k_kfree(const void* memory)
{
    kfree(memory);
}

size_t k_strlen(const char* text)
{
    return strlen(text);
}

int k_strcmp(const char* a, const char* b)
{
    return strcmp(a, b);
}

int k_strncasecmp(const char* a, const char* b, size_t size)
{
    return strncasecmp(a, b, size);
}

char* k_strncpy(char* to, const char* from, size_t size)
{
    return strncpy(to, from, size);
}

const char* k_strrchr(const char* text, int byte)
{
    return strrchr(text, byte);
}

const char* k_strstr(const char* text, const char* part)
{
    return strstr(text, part);
}

char* k_strsep(char** text, const char* separators)
{
    return strsep(text, separators);
}

unsigned long k_simple_strtoul(const char* text, char** end, unsigned base)
{
    return simple_strtoul(text, end, base);
}

int k_vsnprintf(char* to, size_t size, const char* format, va_list arguments)
{
    return vsnprintf(to, size, format, arguments);
}

void k_rb_insert_color(struct rb_node* node, struct rb_root* root)
{
    rb_insert_color(node, root);
}

void k_rb_erase(struct rb_node* node, struct rb_root* root)
{
    rb_erase(node, root);
}

struct rb_node* k_rb_first(const struct rb_root* root)
{
    return rb_first(root);
}

/// The engine's log is a stream: a text behind one without a line end continues that line.
int k_printk(const char* format, ...)
{
    static bool continues;
    const size_t length = strlen(format);
    struct va_format text = {.fmt = format};
    va_list arguments;
    int written;

    va_start(arguments, format);
    text.va = &arguments;
    written = READ_ONCE(continues) ? printk(KERN_CONT "%pV", &text) : printk(KERN_NOTICE "%pV", &text);
    va_end(arguments);
    WRITE_ONCE(continues, length != 0 && format[length - 1] != '\n');
    return written;
}
