#include "source/packages.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

namespace source {

namespace {

namespace fs = std::filesystem;

/// The name of its lists: packages that can be installed for several machines have one in it.
std::optional<std::string> list_name(const std::string& name, const std::string& database)
{
    for (const std::string& candidate : {name, name + ":amd64", name + ":i386"}) {
        std::error_code unknown;
        if (fs::exists(database + "/info/" + candidate + ".list", unknown))
            return candidate;
    }
    return std::nullopt;
}

std::map<std::string, std::string> digests(const std::string& file)
{
    std::map<std::string, std::string> all;
    std::ifstream lines(file);
    std::string line;
    constexpr std::size_t digits = 32;
    while (std::getline(lines, line))
        if (line.size() > digits + 2)
            all["/" + line.substr(digits + 2)] = line.substr(0, digits);
    return all;
}

/// The installed version; nothing when only configuration files are left.
std::optional<std::string> installed_version(const std::string& name, const std::string& database)
{
    std::ifstream lines(database + "/status");
    std::string line;
    bool is_it = false;
    bool is_installed = false;
    while (std::getline(lines, line)) {
        if (line.starts_with("Package: ")) {
            is_it = line.substr(9) == name;
            is_installed = false;
        } else if (is_it && line.starts_with("Status: ")) {
            is_installed = line.ends_with(" installed");
        } else if (is_it && is_installed && line.starts_with("Version: ")) {
            return line.substr(9);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<package> find_package(const std::string& name, const std::string& database)
{
    if (name.empty() || name.find('/') != std::string::npos)
        return std::nullopt;
    const auto lists = list_name(name, database);
    const auto version = installed_version(name.substr(0, name.find(':')), database);
    if (!lists || !version)
        return std::nullopt;
    package found{name, *version, {}};
    const auto md5 = digests(database + "/info/" + *lists + ".md5sums");
    std::ifstream lines(database + "/info/" + *lists + ".list");
    std::string line;
    while (std::getline(lines, line)) {
        const auto known = md5.find(line);
        found.files.push_back({line, known == md5.end() ? "" : known->second});
    }
    return found;
}

} // namespace source
