#ifndef SORVANIC_POLICY_POLICY_MODULE_H
#define SORVANIC_POLICY_POLICY_MODULE_H

#include "policy/table_ops.h"

/// All policy tables as one: each operation calls the same operation of every table, always in
/// the same order, whatever they answer, and returns 0.
extern const policy_ops sorvanic_kernel_policy_module;

#endif
