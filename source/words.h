#ifndef SORVANIC_SOURCE_WORDS_H
#define SORVANIC_SOURCE_WORDS_H

#include <map>
#include <string>
#include <string_view>

#include "source/policy.h"

// Entries of the tables as people say them.

namespace source {

/// What is known of the keys of a policy: key text to path, or several paths.
using program_names = std::map<std::string, std::string>;
program_names names_of(const policy& of);

/// How a table is called in sentences: "allowed program", "rule of a program".
std::string_view what_it_lists(policy_table table);

/// One entry: "vim may read, write below /srv/www".
std::string entry_in_words(policy_table table, const std::string& line, const program_names& names);

} // namespace source

#endif
