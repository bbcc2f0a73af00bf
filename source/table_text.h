#ifndef SORVANIC_SOURCE_TABLE_TEXT_H
#define SORVANIC_SOURCE_TABLE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "source/table_names.h"

namespace source {

/// Something wrong in a source file, and what to do about it.
struct source_error {
    std::size_t line; ///< from 1
    std::string text;
};

/// An entry of a source file.
struct source_entry {
    std::size_t line; ///< from 1
    std::string text; ///< of a program list: the key text
    std::string path; ///< the program that was named; empty for a key text
    std::string md5;  ///< of that program
};

/// A source file turned into what the policy directory gets.
struct compiled_file {
    std::vector<source_entry> lines;
    std::string content; ///< the file's bytes; of no use when there are errors
    std::size_t entries = 0;
    std::size_t duplicates = 0; ///< programs listed again, left out of `content`
    std::vector<source_error> errors;
};

/// Compiles the text of a source file for `file`. Lines that are blank, or begin with "#", are
/// left out. A line of a program list is 8 hexadecimal digits of key text, or an absolute path
/// whose file is read and digested now; blanks at its end do not count. Every wrong line is an
/// error of its own, but a file with zero bytes or carriage returns is only told about those.
compiled_file compile_policy_file(const policy_file& file, std::string_view text);

} // namespace source

#endif
