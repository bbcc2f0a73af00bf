#ifndef SORVANIC_TESTS_CLI_COMMANDS_H
#define SORVANIC_TESTS_CLI_COMMANDS_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace cli_test {

struct outcome {
    int status; ///< exit status; 128 + the signal when one ended it
    std::string out;
    std::string err;
};

/// Runs a program, found in PATH, to its end, without standard input. `out` is a file that gets
/// its standard output in place of the outcome.
outcome run(std::vector<std::string> command, const char* out = nullptr);

/// Runs the program under test with these arguments.
outcome sorvanic(std::vector<std::string> arguments, const char* out = nullptr);

/// A directory of the test's own, removed with all in it.
class directory {
public:
    directory();
    ~directory();
    directory(const directory&) = delete;
    directory& operator=(const directory&) = delete;

    std::string path(std::string_view name = "") const; ///< absolute
    /// Makes the file and the directories above it; gives its absolute path.
    std::string write(std::string_view name, std::string_view content) const;
    std::string read(std::string_view name) const; ///< "(none)" when it cannot be opened

private:
    std::filesystem::path path_;
};

} // namespace cli_test

#endif
