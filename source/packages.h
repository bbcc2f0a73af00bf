#ifndef SORVANIC_SOURCE_PACKAGES_H
#define SORVANIC_SOURCE_PACKAGES_H

#include <optional>
#include <string>
#include <vector>

namespace source {

struct packaged_file {
    std::string path;
    std::string md5; ///< as the package has it; empty: it says nothing
};

struct package {
    std::string name;
    std::string version;
    std::vector<packaged_file> files;
};

/// The installed package of this name, as dpkg's own lists below `database` have it; nothing when it is
/// not installed.
std::optional<package> find_package(const std::string& name, const std::string& database = "/var/lib/dpkg");

} // namespace source

#endif
