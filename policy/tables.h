#ifndef SORVANIC_POLICY_TABLES_H
#define SORVANIC_POLICY_TABLES_H

#include "policy/catalogue.h"

/// The operations that every table has, as places in the table's own constant object.
struct table_door {
    int (*const* init)();
    int (*const* load)();
    int (*const* unload)();
    int (*const* sync)();
    int (*const* reload)();
    int (*const* destroy)();
};

/// In the order of the catalogue. What the operations do and where they may run: table_ops.h.
extern const table_door policy_doors[policy_tables];

#endif
