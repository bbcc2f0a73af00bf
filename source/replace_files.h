#ifndef SORVANIC_SOURCE_REPLACE_FILES_H
#define SORVANIC_SOURCE_REPLACE_FILES_H

#include <string>
#include <vector>

namespace source {

struct new_file {
    std::string name; ///< without a "/"
    std::string content;
};

/// Puts the files into `directory`, which is made (mode 0700, its parent must exist) when it is
/// not there. Each file is replaced atomically: whoever opens it, at any time, also after a power
/// failure, gets its old content or its new one. None is replaced before all of them are safely
/// on the disk. A new file gets the mode 0600; one that is replaced keeps its mode, and its owner
/// where that is permitted. Throws std::system_error naming the file.
void replace_files(const std::string& directory, const std::vector<new_file>& files);

} // namespace source

#endif
