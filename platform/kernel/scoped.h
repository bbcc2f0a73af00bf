#ifndef SORVANIC_PLATFORM_KERNEL_SCOPED_H
#define SORVANIC_PLATFORM_KERNEL_SCOPED_H

#include "platform/kernel/annotations.h"
#include "platform/kernel/errno.h"
#include "platform/kernel/file.h"
#include "platform/kernel/mm.h"
#include "platform/kernel/mutex.h"
#include "platform/kernel/path.h"
#include "platform/kernel/rwlock.h"
#include "platform/kernel/slab.h"
#include "platform/kernel/spinlock.h"
#include "platform/kernel/string.h"
#include "platform/kernel/task.h"

// Resources that are taken in a scope and given back at its end. There is one guard for each kind; none can
// be copied, and each makes only the pair of calls that it is named for.

namespace kernel {

struct not_copied {
    not_copied() = default;
    not_copied(const not_copied&) = delete;
    not_copied& operator=(const not_copied&) = delete;
};

class K_SCOPED_CAPABILITY read_guard : not_copied {
public:
    explicit read_guard(rwlock_t& lock) K_ACQUIRE_SHARED(lock) : lock_(lock) { _read_lock(&lock_); }
    ~read_guard() K_RELEASE() { _read_unlock(&lock_); }

private:
    rwlock_t& lock_;
};

class K_SCOPED_CAPABILITY write_guard : not_copied {
public:
    explicit write_guard(rwlock_t& lock) K_ACQUIRE(lock) : lock_(lock) { _write_lock(&lock_); }
    ~write_guard() K_RELEASE() { _write_unlock(&lock_); }

private:
    rwlock_t& lock_;
};

class K_SCOPED_CAPABILITY spin_guard : not_copied {
public:
    explicit spin_guard(spinlock_t& lock) K_ACQUIRE(lock) : lock_(lock) { _spin_lock(&lock_); }
    ~spin_guard() K_RELEASE() { _spin_unlock(&lock_); }

private:
    spinlock_t& lock_;
};

class K_SCOPED_CAPABILITY mutex_guard : not_copied {
public:
    explicit mutex_guard(mutex& lock) K_ACQUIRE(lock) : lock_(lock) { mutex_lock(&lock_); }
    ~mutex_guard() K_RELEASE() { mutex_unlock(&lock_); }

private:
    mutex& lock_;
};

class rcu_guard : not_copied {
public:
    rcu_guard() { rcu_read_lock(); }
    ~rcu_guard() { rcu_read_unlock(); }
};

/// Lifts the thread's address limit so that file operations take kernel buffers.
class kernel_limit : not_copied {
public:
    kernel_limit() : saved_(get_fs()) { set_fs(KERNEL_DS); }
    ~kernel_limit() { set_fs(saved_); }

private:
    mm_segment_t saved_;
};

/// A file opened by kernel path and closed at the end of the scope.
class open_file : not_copied {
public:
    open_file(const char* path, int flags, int mode) : file_(filp_open(path, flags, mode)) {}
    ~open_file()
    {
        if (is_open())
            filp_close(file_, nullptr);
    }
    bool is_open() const { return is_object(file_); }
    file* get() const { return file_; }

private:
    file* file_;
};

/// For memory that is written whole, or as text, before anybody reads it.
struct uncleared_t {};
inline constexpr uncleared_t uncleared;

/// Memory from kmalloc, freed at the end of the scope unless released. T is trivial.
template <typename T>
class kmem : not_copied {
public:
    /// `count` objects, zero-filled; get() is null when there was no memory.
    explicit kmem(std::size_t count = 1, gfp_t how = GFP_KERNEL)
        : memory_(static_cast<T*>(kmalloc(count * sizeof(T), how)))
    {
        if (memory_ != nullptr)
            memset(memory_, 0, count * sizeof(T));
    }
    /// The same with undefined content.
    explicit kmem(uncleared_t, std::size_t count = 1, gfp_t how = GFP_KERNEL)
        : memory_(static_cast<T*>(kmalloc(count * sizeof(T), how)))
    {
    }
    ~kmem() { kfree(memory_); }

    explicit operator bool() const { return memory_ != nullptr; }
    T* get() const { return memory_; }
    T* operator->() const { return memory_; }

    /// Hands the memory over: the caller frees it.
    T* release()
    {
        T* given = memory_;
        memory_ = nullptr;
        return given;
    }

private:
    T* memory_;
};

/// A reference on both halves of a path.
class path_ref : not_copied {
public:
    explicit path_ref(const path& held) : path_(held) { path_get(&path_); }
    ~path_ref() { path_put(&path_); }
    const path* get() const { return &path_; }

private:
    path path_;
};

/// Owns one reference on an entry (null is none): the one that `held` came with.
class dentry_ref : not_copied {
public:
    explicit dentry_ref(dentry* held) : dentry_(held) {}
    ~dentry_ref()
    {
        if (dentry_ != nullptr)
            dput(dentry_);
    }
    dentry* get() const { return dentry_; }

private:
    dentry* dentry_;
};

/// Owns one reference on an address space (null is none): the one from get_task_mm.
class mm_ref : not_copied {
public:
    explicit mm_ref(mm_struct* held) : mm_(held) {}
    ~mm_ref()
    {
        if (mm_ != nullptr)
            mmput(mm_);
    }
    mm_struct* get() const { return mm_; }

private:
    mm_struct* mm_;
};

} // namespace kernel

#endif
