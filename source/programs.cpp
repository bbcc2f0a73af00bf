#include "source/programs.h"

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <span>

#include <fmt/format.h>

#include "digest/digest_key.h"
#include "source/line_text.h"
#include "source/packages.h"
#include "source/program_digest.h"

namespace source {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view package_prefix = "package:";
constexpr std::string_view digest_prefix = "digest:";
constexpr std::size_t longest_command_name = 15;
constexpr std::size_t most_files = 65536; ///< more than any list takes

bool is_executable_file(const std::string& path)
{
    struct stat about;
    return stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode) && (about.st_mode & 0111) != 0;
}

std::string real_path(const std::string& path)
{
    std::error_code unknown;
    const fs::path real = fs::canonical(path, unknown);
    return unknown ? path : real.string();
}

std::optional<std::uint32_t> hexadecimal(std::string_view digits)
{
    std::uint32_t value = 0;
    const auto [end, failure] = std::from_chars(digits.begin(), digits.end(), value, 16);
    if (failure != std::errc() || end != digits.end())
        return std::nullopt;
    return value;
}

/// One list entry being turned into programs.
class lookup {
public:
    lookup(const word& entry, findings& found) : entry_(entry), found_(found) {}

    std::vector<program_entry> run()
    {
        const std::string& text = entry_.value;
        struct stat about;
        if (text.starts_with(package_prefix))
            take_package(text.substr(package_prefix.size()));
        else if (text.starts_with(digest_prefix))
            take_digest(text.substr(digest_prefix.size()));
        else if (text.empty() || text.front() != '/')
            found_.error(entry_.at, fmt::format("{} is no program; write an absolute path, a pattern, "
                                                "\"package:NAME\" or \"digest:HEX\"",
                                                shown(text)));
        else if (stat(text.c_str(), &about) == 0)
            S_ISDIR(about.st_mode) ? take_directory(text) : take_named(text);
        else if (text.find_first_of("*?[") != std::string::npos)
            take_pattern(text);
        else
            found_.error(entry_.at, fmt::format("{}: there is no such file; correct the path, or take it out",
                                                shown(text)));
        return std::move(all_);
    }

private:
    /// Lists one file, by its real name.
    bool take(const std::string& path)
    {
        std::string reason;
        const auto digest = digest_program(path, reason);
        if (!digest) {
            found_.error(entry_.at, fmt::format("{}: {}", shown(path), reason));
            return false;
        }
        if (digest->key == 0)
            found_.warn(entry_.at,
                        fmt::format("{} has the key 00000000, that of every unreadable file", shown(path)));
        all_.push_back({path, digest->key, digest->md5, {}, {}, entry_.at});
        return true;
    }

    /// A file that was named as such: what one may not expect of it is told.
    void take_named(const std::string& path)
    {
        const std::string real = real_path(path);
        if (!is_executable_file(real))
            found_.warn(entry_.at,
                        fmt::format("{} is not executable: listing it lets nothing run", shown(path)));
        if (real != path)
            found_.note(entry_.at, fmt::format("{} is {}", shown(path), real));
        take(real);
    }

    void take_pattern(const std::string& pattern)
    {
        glob_t matched = {};
        const int failure = ::glob(pattern.c_str(), 0, nullptr, &matched);
        const std::unique_ptr<glob_t, void (*)(glob_t*)> owner(&matched, ::globfree);
        if (failure == 0)
            for (const char* path : std::span(matched.gl_pathv, matched.gl_pathc))
                if (is_executable_file(path))
                    take(real_path(path));
        if (all_.empty())
            found_.error(entry_.at, fmt::format("no program matches {}", shown(pattern)));
    }

    void take_directory(const std::string& directory)
    {
        std::error_code failure;
        std::vector<std::string> paths;
        for (fs::recursive_directory_iterator at(directory, failure), end; !failure && at != end;
             at.increment(failure))
            if (is_executable_file(at->path()) && paths.size() <= most_files)
                paths.push_back(at->path());
        if (failure)
            found_.error(entry_.at, fmt::format("{}: {}", shown(directory), failure.message()));
        std::ranges::sort(paths);
        for (const std::string& path : paths)
            take(real_path(path));
        if (paths.empty())
            found_.error(entry_.at,
                         fmt::format("{} holds no program; \"free\" is for what is going to be there",
                                     shown(directory)));
    }

    void take_package(const std::string& name)
    {
        const auto held = find_package(name);
        if (!held)
            return found_.error(entry_.at, fmt::format("no package {} is installed; `dpkg -S FILE` names the "
                                                       "package of a file",
                                                       shown(name)));
        bool any = false;
        for (const packaged_file& file : held->files) {
            struct stat about;
            // A package's links lead to what it, or another package, has as a file.
            if (lstat(file.path.c_str(), &about) != 0 || !S_ISREG(about.st_mode) ||
                (about.st_mode & 0111) == 0)
                continue;
            any = true;
            if (!take(real_path(file.path)))
                continue;
            if (!file.md5.empty() && all_.back().md5 != file.md5) {
                found_.warn(entry_.at,
                            fmt::format("{} differs from what package {} {} has, so it is not listed; "
                                        "reinstall the package, or list the file by its path",
                                        file.path, name, held->version));
                all_.pop_back();
                continue;
            }
            all_.back().package = name;
            all_.back().version = held->version;
        }
        if (!any)
            found_.error(entry_.at, fmt::format("package {} holds no program; name one that it depends on",
                                                shown(name)));
    }

    void take_digest(std::string_view digits)
    {
        constexpr std::size_t key_digits = 8;
        constexpr std::size_t words_of_digest = 4;
        std::uint32_t key = 0;
        const bool whole = digits.size() == key_digits * words_of_digest;
        for (std::size_t at = 0; at < digits.size(); at += key_digits) {
            const auto part = hexadecimal(digits.substr(at, key_digits));
            if (!part || (!whole && digits.size() != key_digits))
                return found_.error(entry_.at,
                                    "a digest has 32 hexadecimal digits (an MD5), or 8 of key text; "
                                    "`sorvanic digest FILE` prints both");
            key ^= __builtin_bswap32(*part);
        }
        if (digits.empty())
            return found_.error(entry_.at, "no digest; `sorvanic digest FILE` prints one");
        if (key == 0)
            return found_.error(entry_.at,
                                "the key 00000000 is that of every file that cannot be read; leave it out");
        all_.push_back({{}, key, whole ? std::string(digits) : "", {}, {}, entry_.at});
    }

    const word& entry_;
    findings& found_;
    std::vector<program_entry> all_;
};

} // namespace

std::vector<program_entry> programs_of(const word& entry, findings& found)
{
    return lookup(entry, found).run();
}

std::vector<std::string> command_names(const std::string& named)
{
    constexpr int most_links = 40;
    std::vector<std::string> names;
    fs::path at = named;
    for (int links = 0; links < most_links; ++links) {
        const std::string name = at.filename().string().substr(0, longest_command_name);
        if (std::ranges::find(names, name) == names.end())
            names.push_back(name);
        std::error_code none;
        const fs::path next = fs::read_symlink(at, none);
        if (none)
            break;
        at = next.is_absolute() ? next : at.parent_path() / next;
    }
    return names;
}

std::string interpreter_of(const std::string& path)
{
    std::array<char, 256> head = {};
    std::ifstream file(path, std::ios::binary);
    file.read(head.data(), head.size());
    std::string_view line(head.data(), static_cast<std::size_t>(file.gcount()));
    if (!line.starts_with("#!"))
        return {};
    line = line.substr(2, line.find('\n') - 2);
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    return std::string(line.substr(0, line.find_first_of(" \t\r")));
}

} // namespace source
