#include "policy/label_line.h"

#include "policy/fields.h"

using namespace kernel;

namespace {

template <typename Number>
bool read_field(char** rest, char separator, Number* number)
{
    const char* field = next_field(rest, separator);
    u32 value = 0;
    if (field == nullptr || !read_number(field, &value))
        return false;
    *number = static_cast<Number>(value);
    return true;
}

} // namespace

bool read_label_line(char* line, label_line* read)
{
    char* rest = line;
    read->key = next_field(&rest, ':');
    security_label& label = read->label;
    if (!read_field(&rest, ':', &label.value1) || !read_field(&rest, ':', &label.confidentiality) ||
        !read_field(&rest, ':', &label.integrity))
        return false;
    for (u8& category : label.categories)
        if (!read_field(&rest, ',', &category))
            return false;
    return true;
}
