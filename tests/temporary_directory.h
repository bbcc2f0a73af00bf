#ifndef SORVANIC_TESTS_TEMPORARY_DIRECTORY_H
#define SORVANIC_TESTS_TEMPORARY_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

/// A directory that goes with its object, and all in it.
class temporary_directory {
public:
    temporary_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "sorvanic-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot make a directory like " + pattern);
        path_ = pattern;
    }
    ~temporary_directory()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    temporary_directory(const temporary_directory&) = delete;
    temporary_directory& operator=(const temporary_directory&) = delete;

    std::string operator/(std::string_view name) const { return (path_ / name).string(); }
    std::string path() const { return path_.string(); }

    /// Makes a file that may be executed, and the directories above it; gives its path.
    std::string write(std::string_view name, std::string_view content) const
    {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        if (!(std::ofstream(file, std::ios::binary) << content).flush())
            throw std::runtime_error("cannot write " + file.string());
        std::filesystem::permissions(file, std::filesystem::perms(0755));
        return file.string();
    }

    /// What a file holds; "(none)" when it cannot be opened.
    std::string read(std::string_view name) const
    {
        std::ifstream stream(path_ / name, std::ios::binary);
        return stream ? std::string(std::istreambuf_iterator<char>(stream), {}) : "(none)";
    }

private:
    std::filesystem::path path_;
};

#endif
