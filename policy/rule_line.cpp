#include "policy/rule_line.h"

#include "policy/fields.h"

bool read_rule_line(char* line, rule_line* read)
{
    char* rest = line;
    read->path = next_field(&rest, ':');
    read->who = next_field(&rest, ':');
    return rest != nullptr && read_number(rest, &read->mask);
}
