#ifndef SORVANIC_ENFORCE_INSTALL_INSTALL_TRACKING_H
#define SORVANIC_ENFORCE_INSTALL_INSTALL_TRACKING_H

#include <atomic>
#include <cstddef>

#include "platform/kernel/types.h"

// The install phase lasts from the start of the installer, which the execution check records, until the agent
// reports its end. Files that descendants of the launcher's children create or make executable meanwhile are
// listed (install_log.h) and marked, and run although they are on no list.

/// Who installs at the moment, and which phase it is. Every word is read and written on its
/// own, on any processor: a reader may see the start or the end of a phase half done.
struct sorvanic_super_process {
    const char* name;                       ///< the installer's file name
    std::atomic<kernel::u32> launcher_pid;  ///< the process that started it; 1: no phase is open
    std::atomic<kernel::u32> installer_pid; ///< the installer's; only for readers of memory; 1 likewise
    std::atomic<kernel::u64> generation;    ///< number of the phase, or of the next one
};
static_assert(sizeof(sorvanic_super_process) == 24);

extern sorvanic_super_process sorvanic_super_proc;

inline constexpr kernel::u32 no_launcher = 1;

/// What an inode's security field points at: 24 bytes from kmalloc, which belong to the inode
/// from then on and are freed with it.
struct install_mark {
    kernel::u32 code;       ///< who asked for the mark; never read
    kernel::u64 generation; ///< the phase in which it was set
    kernel::u64 unused;
};
static_assert(sizeof(install_mark) == 24 && offsetof(install_mark, generation) == 8);

inline constexpr kernel::u32 install_code = 1; ///< the one marking code in use

// Where an executable file came from.
inline constexpr kernel::s32 install_origin_created = 0;
inline constexpr kernel::s32 install_origin_attributes = -1;

/// Whether the current task is inside the installation of an open phase: it is the launcher, or the launcher
/// is its grandparent or a more distant ancestor. So processes that another child of the launcher starts are
/// inside too, but a child of the launcher, such as the installer itself, is not. Takes the lock of the
/// ancestor walk.
bool inside_installation();

/// Whether the inode (null is none) carries a mark of the current generation.
bool has_current_install_mark(const kernel::inode* of);

/// Lists `entry` in the install log and marks its inode, if it has one yet, when the current
/// task is inside the installation; does nothing otherwise. A file that is being created
/// (`origin` 0) below "/var/log/" is left out. Without memory for a mark the file is listed
/// only; without a path nothing happens. May sleep.
void sorvanic_filter_install_executablefile(kernel::dentry* entry, kernel::u32 code, kernel::s32 origin);

/// Ends the phase, if one is open: its marks no longer count.
void sorvanic_kernel_task_inside_super_proc_clean();

#endif
