#ifndef SORVANIC_SOURCE_POLICY_H
#define SORVANIC_SOURCE_POLICY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "policy/catalogue.h"
#include "source/document.h"
#include "source/programs.h"

namespace source {

/// One of the sixteen tables as text, whatever it was made from.
struct policy_text {
    bool present = false;     ///< the policy has a file for it, be it empty
    std::vector<word> lines;  ///< without comments and blank lines; of program lists: key texts
    std::size_t repeated = 0; ///< programs listed again, left out
};

struct listed_program {
    policy_table list;
    program_entry program;
};

enum class policy_kind {
    document, ///< a policy.toml and what it includes
    texts,    ///< a directory of the sixteen text files
    built,    ///< a directory that the engine reads
};

/// A whole policy: what the engine will make of what somebody wrote.
struct policy {
    std::string path; ///< as it was given
    policy_kind kind = policy_kind::built;
    std::array<policy_text, policy_tables> tables;
    std::vector<listed_program> programs; ///< where it is known what a key stands for

    policy_text& of(policy_table table) { return tables[static_cast<std::size_t>(table)]; }
    const policy_text& of(policy_table table) const { return tables[static_cast<std::size_t>(table)]; }
};

/// What a directory is when what is in it does not tell.
enum class wanted_form { any, source };

/// Reads the policy at `path`: a file is a policy.toml, a directory has one, or the sixteen files as
/// text or as the engine reads them. What is wrong goes to `found`; with an error there the policy
/// is of no use. What is wrong in a built directory is a warning, as the engine reads it all the same.
policy load_policy(const std::string& path, findings& found, wanted_form form = wanted_form::any);

/// The tables that a document stands for.
policy compile_document(const document& from, findings& found);

} // namespace source

#endif
