#ifndef SORVANIC_POLICY_DIRCTL_H
#define SORVANIC_POLICY_DIRCTL_H

#include "policy/table_ops.h"

/// The controlled directories, from "/etc/sorvanic/dirctl": files in and below them are subject
/// to the access rules.
extern const path_list_ops sorvanic_kernel_dirctl_module;

#endif
