#ifndef SORVANIC_ENFORCE_LABEL_TEST_H
#define SORVANIC_ENFORCE_LABEL_TEST_H

#include "platform/kernel/decision.h"
#include "platform/kernel/types.h"
#include "policy/label_line.h"

/// Whether the labels of `subject` and `object` permit the access bits of `mask`. Equal labels
/// permit everything. At the first differing category a subject that has one there may do
/// nothing. Then the levels decide: no reading up and no writing down in confidentiality
/// (D. Bell and L. LaPadula, 1973), no reading down and no writing up in integrity (K. Biba,
/// 1977). A mask that both reads and writes is judged as writing.
bool label_test(const security_label& subject, const security_label& object, kernel::u32 mask);

/// The same for the labels of the user `user` and of the absolute path `path`. False when one of
/// them has none, and without memory. May sleep; takes the read lock of one label table, then
/// that of the other. Notes the labels in `made` when both have one.
bool labels_permit(const char* user, const char* path, kernel::u32 mask, kernel::decision& made);

#endif
