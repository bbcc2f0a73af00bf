#ifndef SORVANIC_CLI_FOUND_IN_PATH_H
#define SORVANIC_CLI_FOUND_IN_PATH_H

#include <string>

namespace cli {

/// The path of a program as a shell finds it; `program` itself when it has a slash or nothing is found.
std::string found_in_path(const std::string& program);

} // namespace cli

#endif
