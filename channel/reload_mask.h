#ifndef SORVANIC_CHANNEL_RELOAD_MASK_H
#define SORVANIC_CHANNEL_RELOAD_MASK_H

#include "platform/kernel/types.h"

/// Runs the reload of each policy table whose bit is set in `mask`, one after the other, always in
/// the same order (policy/catalogue.h has bits and order); other bits
/// are ignored. Not while another call runs. Reads files, so it sleeps, possibly for long.
void reload_tables(kernel::u32 mask);

#endif
