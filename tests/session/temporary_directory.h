#ifndef SORVANIC_TESTS_SESSION_TEMPORARY_DIRECTORY_H
#define SORVANIC_TESTS_SESSION_TEMPORARY_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A directory that goes with its object.
class temporary_directory {
public:
    temporary_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "sorvanic-session-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
        path_ = pattern;
    }
    ~temporary_directory()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    temporary_directory(const temporary_directory&) = delete;
    temporary_directory& operator=(const temporary_directory&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    std::string path() const { return path_.string(); }

    /// Makes a file that may be executed.
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path_ / name, std::ios::binary) << content;
        std::filesystem::permissions(path_ / name, std::filesystem::perms(0755));
        return *this / name;
    }

private:
    std::filesystem::path path_;
};

#endif
