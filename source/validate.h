#ifndef SORVANIC_SOURCE_VALIDATE_H
#define SORVANIC_SOURCE_VALIDATE_H

#include <string>
#include <vector>

#include "source/policy.h"
#include "source/replace_files.h"

namespace source {

/// What a policy of any kind does that nobody expects of it: controls that are off or have no rules, rules
/// that are never asked, names that nobody has. All of it warnings.
void find_surprises(const policy& of, findings& found);

/// The files that the engine reads. A line that it would not take as it is meant is an error, at the place
/// where it was written.
std::vector<new_file> encode(const policy& of, findings& found);

/// One line for people: "enforcing: programs 212, files below 3 directories; signals not protected".
std::string in_force(const policy& of);

} // namespace source

#endif
