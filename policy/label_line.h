#ifndef SORVANIC_POLICY_LABEL_LINE_H
#define SORVANIC_POLICY_LABEL_LINE_H

#include "platform/kernel/types.h"

inline constexpr int label_categories = 8;

/// A security label, of a subject or an object.
struct security_label {
    kernel::u16 value1; ///< kept, but never compared
    kernel::u16 confidentiality;
    kernel::u16 integrity;
    kernel::u8 categories[label_categories];
};

/// A line of a label file, "key:value1:confidentiality:integrity:c1,c2,c3,c4,c5,c6,c7,c8", taken
/// apart. What follows the eighth category is ignored.
struct label_line {
    const char* key; ///< inside the line
    security_label label;
};

/// Takes `line` apart, which is written to. Numbers are cut to their fields' width. False when a
/// field is missing or read_number (fields.h) refuses one.
bool read_label_line(char* line, label_line* read);

#endif
