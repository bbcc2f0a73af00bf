#ifndef SORVANIC_BENCH_DIRECTORY_H
#define SORVANIC_BENCH_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "platform/user/driver/files.h"

namespace bench {

/// A private directory, removed at the end of the scope.
class directory {
public:
    directory()
    {
        std::string name = std::filesystem::temp_directory_path() / "sorvanic_bench_XXXXXX";
        path_ = ::mkdtemp(name.data());
    }
    ~directory() { std::filesystem::remove_all(path_); }
    directory(const directory&) = delete;
    directory& operator=(const directory&) = delete;

    std::string operator/(std::string_view name) const { return path_ / name; }

    void write(std::string_view name, std::string_view content) const
    {
        std::ofstream(path_ / name, std::ios::binary) << content;
    }

private:
    std::filesystem::path path_;
};

/// A private directory that the engine knows under another path.
class mounted_directory : public directory {
public:
    explicit mounted_directory(std::string_view at) { platform::mount_directory(at, *this / ""); }
    ~mounted_directory() { platform::unmount_all(); }
};

} // namespace bench

#endif
