#ifndef SORVANIC_POLICY_FIELDS_H
#define SORVANIC_POLICY_FIELDS_H

#include <cstddef>

#include "platform/kernel/string.h"
#include "platform/kernel/types.h"

// The fields of a policy line.

/// Cuts the next field off `*rest` at the first `separator` and moves `*rest` behind it. The
/// last field leaves `*rest` null; null when `*rest` was null: there is no further field. An
/// empty field is a field.
char* next_field(char** rest, char separator);

/// Reads the decimal digits at the start of `field` (no sign, no blanks; 0 without a digit)
/// and takes the low 32 bits of the number. Stores them, at most 2^31 - 1, in `*value` and
/// returns true; returns false and stores nothing when they are negative as a signed number.
bool read_number(const char* field, kernel::u32* value);

/// Whether `text` equals the terminated text in `field`, case ignored.
template <std::size_t size>
bool equals_field(const char (&field)[size], const char* text)
{
    return kernel::strncasecmp(field, text, size) == 0;
}

#endif
