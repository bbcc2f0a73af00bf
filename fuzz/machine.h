#ifndef SORVANIC_FUZZ_MACHINE_H
#define SORVANIC_FUZZ_MACHINE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "policy/catalogue.h"

// A stand-in kernel without a disk, for targets that feed the engine: what a target sees of the
// engine is its policy tables, or all of it.

namespace fuzz {

/// Ends the process, for the fuzzer to keep the input, when something that must hold does not.
void expect(bool holds, const char* what);

/// Makes `text` the file of the table, byte for byte, in an otherwise empty policy directory.
void serve_policy_file(policy_table table, std::string text);

/// The same with what the policy directory gets for this text: encoded where that is the table's form.
void serve_policy_text(policy_table table, std::string_view text);

/// Reads that file: init, load and sync of the one table. Its entries can be looked up then.
void load(policy_table table);

/// How many entries lookups see.
std::uint32_t entries(policy_table table);

/// Frees the table, and checks that nothing is left over.
void destroy(policy_table table);

/// Picks a table by a number, any one.
policy_table table_of(std::uint8_t number);

/// As a policy file is encoded.
std::string encode(std::string_view text);

/// No lock, file or reference is held between two inputs.
void expect_nothing_held();

} // namespace fuzz

#endif
