#ifndef SORVANIC_TESTS_CLI_COMMANDS_H
#define SORVANIC_TESTS_CLI_COMMANDS_H

#include <string>
#include <vector>

#include "tests/e2e/child_process.h"
#include "tests/temporary_directory.h"

namespace cli_test {

using e2e::outcome;

/// Runs a program, found in PATH, to its end, without standard input. `out` is a file that gets
/// its standard output in place of the outcome.
outcome run(std::vector<std::string> command, const char* out = nullptr);

/// Runs the program under test with these arguments.
outcome sorvanic(std::vector<std::string> arguments, const char* out = nullptr);

/// Fails unless each of them stands in `text`.
void expect_in(const std::string& text, const std::vector<std::string>& wanted);

} // namespace cli_test

#endif
