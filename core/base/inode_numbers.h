#ifndef SORVANIC_CORE_BASE_INODE_NUMBERS_H
#define SORVANIC_CORE_BASE_INODE_NUMBERS_H

// The inode numbers of the product's own two directories, by which file checks recognise them under any path.
// Computed once at start-up, before any hook runs, and never refreshed; plain reads from then on, in any
// context.

/// Inode number of the configuration directory "/etc/sorvanic"; 0 is unknown.
extern unsigned long sorvanic_config_inode_number;

/// Inode number of the program directory "/usr/sorvanic"; 0 is unknown.
extern unsigned long sorvanic_readonly_exec_inode_number;

/// Sets sorvanic_config_inode_number to that of the directory which holds the white list, or
/// to 0 when the white list cannot be opened. May sleep.
void sorvanic_kernel_common_init_config_inode_number();

/// The same for sorvanic_readonly_exec_inode_number and the agent's program. May sleep.
void sorvanic_kernel_common_init_readonly_exec_inode_number();

unsigned long sorvanic_kernel_common_get_config_inode_number();
unsigned long sorvanic_kernel_common_get_readonly_exec_inode_number();

#endif
