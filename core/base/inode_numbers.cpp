#include "core/base/inode_numbers.h"

#include "platform/kernel/scoped.h"

using namespace kernel;

unsigned long sorvanic_config_inode_number;
unsigned long sorvanic_readonly_exec_inode_number;

static unsigned long parent_inode_number(const char* path)
{
    const open_file opened(path, open_read_only, 0);
    if (!opened.is_open())
        return 0;
    const inode* parent = dentry_inode(dentry_parent(file_path(opened.get()).dentry));
    return parent == nullptr ? 0 : inode_number(parent);
}

void sorvanic_kernel_common_init_config_inode_number()
{
    sorvanic_config_inode_number = parent_inode_number("/etc/sorvanic/whitelist");
}

void sorvanic_kernel_common_init_readonly_exec_inode_number()
{
    sorvanic_readonly_exec_inode_number = parent_inode_number("/usr/sorvanic/sorvagent");
}

unsigned long sorvanic_kernel_common_get_config_inode_number()
{
    return sorvanic_config_inode_number;
}

unsigned long sorvanic_kernel_common_get_readonly_exec_inode_number()
{
    return sorvanic_readonly_exec_inode_number;
}
