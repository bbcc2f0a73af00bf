#ifndef SORVANIC_CORE_ENTRY_H
#define SORVANIC_CORE_ENTRY_H

// How the engine starts and ends. Both functions run once, in the context of the process that loads or
// unloads it, and may sleep.

/// Binds the engine to the running kernel: finds the security-operations structure, loads the whole policy,
/// and only then takes over the hooks and the process-lifecycle calls; opens the agent channel and publishes
/// the protected-shell switch last. Returns 0 when the engine is up, even if the channel or the switch failed
/// (the log says so; records are then not sent, or the switch cannot be read). Returns -1 when start-up
/// stopped before the hooks, nothing of the kernel having been changed and nothing left allocated; the log
/// says why.
int sorvanic_init();

/// Gives hooks and calls back to the kernel, waits for those that are still running, then for the
/// messages that are being received, and releases everything. Only after a sorvanic_init that
/// returned 0.
void sorvanic_exit();

#endif
