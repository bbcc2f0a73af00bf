#ifndef SORVANIC_SOURCE_DIFFERENCE_H
#define SORVANIC_SOURCE_DIFFERENCE_H

#include <string>
#include <vector>

#include "source/policy.h"

namespace source {

/// What changes from one policy to another: a line of words for each entry, "+" or "-" in front. Empty when
/// both decide the same.
std::vector<std::string> difference(const policy& from, const policy& to);

/// The same counted, in one line: "mode now enforce; 3 programs added, 1 removed". Empty when nothing does.
std::string counted_difference(const policy& from, const policy& to);

/// A policy in words, section by section; or `only` that table.
std::string in_words(const policy& of, const policy_file* only = nullptr);

} // namespace source

#endif
