#ifndef SORVANIC_POLICY_STATUS_VALUE_H
#define SORVANIC_POLICY_STATUS_VALUE_H

#include <atomic>

#include "platform/kernel/types.h"

/// A status that hooks read on any processor while a load writes it: one aligned word, not ordered with other
/// memory.
template <typename Word>
using status_word = std::atomic<Word>;

/// Loads a status that is one number: the first line of the encoded file that counts, up to
/// its first ":". A number whose low 32 bits are negative is not stored; no later line is read
/// in its place. Returns 1 when the work file cannot be opened, else 0. May sleep.
int load_status_value(const char* encoded, const char* work, status_word<kernel::s32>& status);

#endif
