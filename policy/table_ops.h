#ifndef SORVANIC_POLICY_TABLE_OPS_H
#define SORVANIC_POLICY_TABLE_OPS_H

#include "platform/kernel/types.h"

// The shapes of policy tables: one struct of operations for each kind of lookup, in slot order. Every table
// is one constant object of one of these shapes, and is used only through that object.
//
// What all shapes have in common:
//   init     makes the table empty (a status table: puts the defaults in). Before anything
//            else, with no other thread about.
//   load     reads the table's file into the idle copy, adding to what is there (a status
//            table: into the live values). 1 when the file cannot be opened, else 0, also when
//            the file's content is rejected or reading stops early. May sleep.
//   unload   empties the idle copy (a status table: puts the defaults back).
//   sync     makes the idle copy the active one and the other way round; nothing for a status
//            table.
//   reload   unload, load and sync. May sleep.
//   destroy  empties both copies; nothing for a status table. No lookup may run any more.
// All return 0 unless said otherwise. load, unload, sync and reload of one table must not run
// at the same time as each other; lookups may run at any time, on any thread. A lookup takes
// one read lock of the active copy at most, and neither sleeps nor allocates.

/// A set of program digest keys.
struct digest_list_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// 0 when the key at `key` is in the active set, 1 when it is not.
    int (*search)(const kernel::u32* key);
    int (*destroy)();
};

/// A list of directories.
struct path_list_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// 0 when the absolute path is a listed directory or lies below one, 1 when not.
    int (*search)(const char* path);
    int (*destroy)();
};

/// A list of programs, which is asked about processes.
struct process_list_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// 0 when the final component of some entry begins with `name`, a process's command name, which
    /// may have been cut short; 1 when none does. An empty name begins every entry.
    int (*search)(const char* name);
    /// 0 when some entry, as a whole, begins with the final component of `path`, the path of a
    /// process's program; 1 when none does.
    int (*match)(const char* path);
    int (*destroy)();
};

/// A list of users, each with a state that changes while the list stands.
struct platform_user_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// Stores the state of the first user with this whole name, case ignored, through `state` and
    /// returns 0; returns 1, storing nothing, when there is none.
    int (*search)(const char* name, kernel::u32* state);
    /// Sets that state. 0, or 1 when there is no such user. Takes a read lock like a lookup.
    int (*update)(const char* name, kernel::u32 state);
    int (*destroy)();
};

struct subject_label;
struct object_label;

/// The labels of subjects, which are known by their user names.
struct subject_label_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// Copies the first record with this whole name, case ignored, to `*found` and returns `found`;
    /// null when there is none.
    subject_label* (*search)(const char* name, subject_label* found);
    int (*destroy)();
};

/// The labels of objects.
struct object_label_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// Copies the first record whose path is the absolute `path` or a directory above it to `*found`
    /// and returns `found`; null when there is none.
    object_label* (*search)(const char* path, object_label* found);
    int (*destroy)();
};

/// Access rules for users. `mask` is a set of access bits.
struct user_rule_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// What the first rule that is for `user` and covers `path` says of `mask`: 0 when it grants all
    /// of it. The table's header gives the other results.
    int (*match)(const char* user, const char* path, kernel::u32 mask);
    int (*destroy)();
};

/// Access rules for programs.
struct program_rule_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// What the rules that cover `path` say of the program with the command name `program` doing
    /// `mask`: 0 when it may do all of it. The table's header gives the other results.
    int (*match)(const char* path, const char* program, kernel::u32 mask);
    int (*destroy)();
};

/// One status value.
struct status_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// The value: never negative.
    kernel::s32 (*getstatus)();
    int (*destroy)();
};

/// A row of status values.
struct indexed_status_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    /// The value at `index`, or the row's default for an index outside it.
    kernel::u32 (*getstatus)(kernel::s32 index);
    int (*destroy)();
};

/// All tables together.
struct policy_ops {
    int (*init)();
    int (*load)();
    int (*unload)();
    int (*sync)();
    int (*reload)();
    int (*destroy)();
};

/// What every table's reload does, through the table's own operations.
template <typename Ops>
int reload_table(const Ops& table)
{
    table.unload();
    table.load();
    table.sync();
    return 0;
}

#endif
