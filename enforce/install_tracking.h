#ifndef SORVANIC_ENFORCE_INSTALL_TRACKING_H
#define SORVANIC_ENFORCE_INSTALL_TRACKING_H

#include "platform/kernel/types.h"

// Where an executable file came from.
inline constexpr int install_code_created = 0;
inline constexpr int install_code_attributes = -1;

/// Takes note of an executable file that came to be, `code` saying how; `mode` is 1. Installs
/// are not tracked yet: nothing is noted. Returns 0.
int sorvanic_filter_install_executablefile(kernel::dentry* entry, int mode, int code);

#endif
