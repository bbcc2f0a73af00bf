#ifndef SORVANIC_CHANNEL_RECORD_COUNTERS_H
#define SORVANIC_CHANNEL_RECORD_COUNTERS_H

#include <atomic>

#include "platform/kernel/types.h"

// What became of audit records that the agent has not got, since the engine's code was loaded.
// Nothing is decided by these.

/// Lost: nobody was there to receive them, sending failed, or there was no memory.
extern constinit std::atomic<kernel::u64> records_dropped;

/// Not sent because they only repeated the last one of their kind.
extern constinit std::atomic<kernel::u64> records_suppressed;

#endif
