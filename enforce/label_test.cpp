#include "enforce/label_test.h"

#include "enforce/file_check.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/security.h"
#include "policy/catalogue.h"
#include "policy/objlabel.h"
#include "policy/sublabel.h"

using namespace kernel;

namespace {

constexpr u32 writes = may_write | may_append | may_remove | may_rename;
constexpr u32 reads = may_read | may_open_bits;

/// The position of the first category that differs, or label_categories.
int first_difference(const security_label& a, const security_label& b)
{
    int position = 0;
    while (position < label_categories && a.categories[position] == b.categories[position])
        ++position;
    return position;
}

} // namespace

bool label_test(const security_label& subject, const security_label& object, u32 mask)
{
    const int differing = first_difference(subject, object);
    if (differing == label_categories && subject.confidentiality == object.confidentiality &&
        subject.integrity == object.integrity)
        return true;
    if (differing < label_categories && subject.categories[differing] != 0)
        return mask == 0;
    if ((mask & writes) != 0)
        return object.confidentiality >= subject.confidentiality && subject.integrity >= object.integrity;
    if ((mask & reads) != 0)
        return object.confidentiality <= subject.confidentiality && subject.integrity <= object.integrity;
    return true;
}

bool labels_permit(const char* user, const char* path, u32 mask, decision& made)
{
    const kmem<object_label> object(uncleared);
    if (!object)
        return false;
    const kmem<subject_label> subject(uncleared);
    if (!subject)
        return false;
    if (sorvanic_kernel_objlabel_module.search(path, object.get()) == nullptr ||
        sorvanic_kernel_sublabel_module.search(user, subject.get()) == nullptr)
        return false;
    made.step = decided_by::labels;
    made.table = static_cast<u8>(policy_table::objlabel);
    made.line = object->line;
    made.subject[0] = subject->label.confidentiality;
    made.subject[1] = subject->label.integrity;
    made.object[0] = object->label.confidentiality;
    made.object[1] = object->label.integrity;
    return label_test(subject->label, object->label, mask);
}
