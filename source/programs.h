#ifndef SORVANIC_SOURCE_PROGRAMS_H
#define SORVANIC_SOURCE_PROGRAMS_H

#include <cstdint>
#include <string>
#include <vector>

#include "source/document.h"

// What a policy means by a program: a file, a pattern, a directory, a package or a digest.

namespace source {

struct program_entry {
    std::string path; ///< with links resolved; empty for a digest
    std::uint32_t key = 0;
    std::string md5;     ///< empty for a key
    std::string package; ///< the package that holds it; empty: none was named
    std::string version; ///< of that package
    place at;
};

/// The programs that one entry of a list means now, each read and digested. What is wrong, differs from
/// its package, or is not the file that one would think goes to `found`.
std::vector<program_entry> programs_of(const word& entry, findings& found);

/// The command names a program may have that is started by the path `named`: that of the path, and those
/// of the links on its way to the file, each cut to the 15 characters that the system keeps.
std::vector<std::string> command_names(const std::string& named);

/// The interpreter that the first line of a script names; empty when the file is none.
std::string interpreter_of(const std::string& path);

} // namespace source

#endif
