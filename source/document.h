#ifndef SORVANIC_SOURCE_DOCUMENT_H
#define SORVANIC_SOURCE_DOCUMENT_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "policy/catalogue.h"
#include "source/finding.h"

// A policy.toml as it was written: typed, but nothing in it is looked up yet.

namespace source {

template <typename Value>
struct written {
    Value value;
    place at;
};
using word = written<std::string>;

/// What one program or user may do below a path.
struct grant {
    word who;
    std::vector<word> access;
};

struct file_section {
    word path;
    std::vector<grant> programs;
    std::vector<grant> users;
};

struct label {
    word key; ///< a user name, or a path
    std::int64_t value = 0;
    std::int64_t confidentiality = 0;
    std::int64_t integrity = 0;
    std::vector<std::int64_t> categories;
};

struct document {
    std::string file;
    std::optional<word> mode;
    std::optional<std::vector<word>> control; ///< nothing: what there are rules for
    std::vector<word> records;
    std::optional<written<bool>> install; ///< whether software may be installed

    std::vector<word> allow;
    std::vector<word> deny;
    std::vector<word> trust; ///< may start anything
    std::vector<word> free;  ///< directories

    std::vector<file_section> files;
    std::vector<label> user_labels;
    std::vector<label> path_labels;
    std::vector<word> protect;
    std::vector<word> first_password; ///< users

    std::map<policy_table, std::vector<word>> lines; ///< as the text files hold them
};

/// Reads the file and what it includes. What is wrong goes to `found`; the document is of no use
/// when that has errors then.
document read_document(const std::string& file, findings& found);

/// The same for a text that is in no file; `name` stands for it in what is said.
document parse_document(const std::string& name, const std::string& text, findings& found);

} // namespace source

#endif
