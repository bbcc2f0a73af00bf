#include "cli/found_in_path.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace cli {

std::string found_in_path(const std::string& program)
{
    const char* const path = getenv("PATH");
    if (program.find('/') != std::string::npos || path == nullptr)
        return program;
    std::istringstream directories(path);
    for (std::string directory; std::getline(directories, directory, ':');)
        if (std::string file = directory + "/" + program; access(file.c_str(), X_OK) == 0)
            return file;
    return program;
}

} // namespace cli
