#ifndef SORVANIC_CHANNEL_RECORD_COUNTERS_H
#define SORVANIC_CHANNEL_RECORD_COUNTERS_H

#include <atomic>

#include "platform/kernel/types.h"

// Counts audit records that did not reach the agent, since the engine was loaded. No decision depends on
// them.

/// Lost: no agent was connected, sending failed, or there was no memory.
extern constinit std::atomic<kernel::u64> records_dropped;

/// Not sent because they only repeated the last one of their kind.
extern constinit std::atomic<kernel::u64> records_suppressed;

#endif
