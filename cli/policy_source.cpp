#include "cli/policy_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <utility>

#include "cli/program_digest.h"
#include "policy/base64.h"

namespace cli {

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::size_t last_audit_switch = 6;
constexpr std::size_t module_switch_count = 4;

/// `text` as a message can show it: in quotes, on one line, not too long.
std::string shown(std::string_view text)
{
    constexpr std::size_t most = 60;
    std::string result = "\"";
    for (const char byte : text.substr(0, most)) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7f)
            result += fmt::format("\\x{:02x}", code);
        else
            result += byte;
    }
    return result + (text.size() > most ? "...\"" : "\"");
}

std::string_view without_trailing_blanks(std::string_view line)
{
    return line.substr(0, line.find_last_not_of(blanks) + 1);
}

/// The whole of `text` as a number that the engine's signed 32 bits hold.
std::optional<std::int32_t> number(std::string_view text)
{
    std::int32_t value = 0;
    const auto [end, failure] = std::from_chars(text.begin(), text.end(), value);
    if (failure != std::errc() || end != text.end() || value < 0 || text.front() == '-')
        return std::nullopt;
    return value;
}

/// The digits of a key in one of its written forms.
std::optional<std::uint32_t> hexadecimal(std::string_view digits)
{
    std::uint32_t value = 0;
    const auto [end, failure] = std::from_chars(digits.begin(), digits.end(), value, 16);
    if (digits.size() != 8 || failure != std::errc() || end != digits.end())
        return std::nullopt;
    return value;
}

std::uint32_t reversed_bytes(std::uint32_t value)
{
    return __builtin_bswap32(value);
}

/// The key that a line of a program list stands for, or nothing and why in `reason`.
std::optional<std::uint32_t> program_key(std::string_view line, std::string& reason)
{
    if (line.front() == '/') {
        const auto digest = digest_program(std::string(line), reason);
        if (digest)
            return digest->key;
        reason = fmt::format("{}: {}; name an existing program, or write its key text", line, reason);
        return std::nullopt;
    }
    if (const auto text = hexadecimal(line))
        return reversed_bytes(*text);
    if (line.starts_with("0x")) {
        if (const auto key = hexadecimal(line.substr(2))) {
            reason = fmt::format("{} is a digest key, not key text; write {}", shown(line), key_text(*key));
            return std::nullopt;
        }
    }
    reason = fmt::format("{} is neither 8 hexadecimal digits of key text nor an absolute path; "
                         "`sorvanic digest FILE` prints key texts",
                         shown(line));
    return std::nullopt;
}

std::optional<std::string> wrong_directory(std::string_view line)
{
    if (line.front() != '/')
        return fmt::format("{} is not an absolute path; begin it with /", shown(line));
    if (line == "/")
        return "the root directory cannot be listed (nothing below it would match); list its directories";
    if (line.back() == '/')
        return fmt::format("{} ends in / and would match nothing; leave the / out", shown(line));
    const std::string path = fmt::format("{}/", line);
    for (const std::string_view part : {"//", "/./", "/../"}) {
        if (path.find(part) != std::string::npos)
            return fmt::format("{} would match nothing, as paths are resolved; leave {} out", shown(line),
                               shown(part.substr(1)));
    }
    return std::nullopt;
}

/// The engine takes what stands before the first ":", so a word can explain the number.
std::optional<std::string> wrong_status(std::string_view line)
{
    if (number(line.substr(0, line.find(':'))))
        return std::nullopt;
    return fmt::format("{} does not begin with a number from 0 to {}; write 1, 2 or 3, as in 3:enforce",
                       shown(line), INT32_MAX);
}

std::optional<std::string> wrong_audit_switch(std::string_view line)
{
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
        return fmt::format("{} has no value; write INDEX:VALUE, as in 2:1", shown(line));
    const auto index = number(line.substr(0, colon));
    if (!index || *index > static_cast<std::int32_t>(last_audit_switch))
        return fmt::format("{} does not begin with an index from 0 to {}; write INDEX:VALUE, as in 2:1",
                           shown(line), last_audit_switch);
    const std::string_view rest = line.substr(colon + 1);
    if (!number(rest.substr(0, rest.find(':'))))
        return fmt::format("{} has no number behind its index; write 0, 1 or 2, as in 2:1", shown(line));
    return std::nullopt;
}

std::optional<std::string> wrong_module_switches(std::string_view line)
{
    if (line.size() >= module_switch_count)
        return std::nullopt;
    return fmt::format("{} has fewer than {} characters and would be ignored; write one for each switch, "
                       "2 for on, as in 2000",
                       shown(line), module_switch_count);
}

std::optional<std::string> wrong_line(const policy_file& file, std::string_view line)
{
    if (line.size() > file.longest_line)
        return fmt::format("{} characters, and the engine takes {}; shorten the line", line.size(),
                           file.longest_line);
    if (blanks.find(line.back()) != std::string_view::npos)
        return "ends in a blank, which would count as a part of the line; remove it";
    if (line[line.find_first_not_of(blanks)] == '#' && line.front() != '#')
        return "a comment begins in the first column; remove the blanks before #";
    switch (file.kind) {
    case policy_kind::directories:
        return wrong_directory(line);
    case policy_kind::status:
        return wrong_status(line);
    case policy_kind::audit_switches:
        return wrong_audit_switch(line);
    case policy_kind::module_switches:
        return wrong_module_switches(line);
    case policy_kind::programs:
    case policy_kind::process_names:
    case policy_kind::rules:
        return std::nullopt;
    }
    return std::nullopt;
}

std::string too_many(const policy_file& file)
{
    if (file.kind == policy_kind::programs)
        return fmt::format("more than {} programs, and the engine would ignore the whole list; "
                           "leave programs out",
                           file.most_entries);
    if (file.most_entries == 1)
        return "a second value, and the engine reads only the first; remove this line";
    return fmt::format("more than {} entries, and the engine ignores the rest; leave entries out",
                       file.most_entries);
}

/// A byte that no source file may hold.
std::optional<source_error> not_plain_text(std::string_view text)
{
    const auto at = text.find_first_of(std::string_view("\0\r", 2));
    if (at == std::string_view::npos)
        return std::nullopt;
    const std::string_view before = text.substr(0, at);
    return source_error{1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')),
                        text[at] == '\r'
                            ? "a carriage return; save the file with Unix line ends"
                            : "a zero byte; a source file is plain text, not a built policy file"};
}

/// Collects the entries of one file, line by line.
class compiler {
public:
    explicit compiler(const policy_file& file) : file_(file) {}

    void take(std::size_t number, std::string_view line)
    {
        if (line.starts_with('#') || without_trailing_blanks(line).empty())
            return;
        const std::size_t before = result_.entries;
        const std::optional<std::string> reason = file_.kind == policy_kind::programs
                                                      ? take_program(without_trailing_blanks(line))
                                                      : take_line(line);
        if (reason)
            result_.errors.push_back({number, *reason});
        else if (result_.entries > before && before == file_.most_entries)
            result_.errors.push_back({number, too_many(file_)});
    }

    compiled_file finish(std::size_t last_line)
    {
        const bool one_value =
            file_.kind == policy_kind::status || file_.kind == policy_kind::module_switches;
        if (one_value && result_.entries == 0 && result_.errors.empty())
            result_.errors.push_back({last_line, "no value; write one, or leave the file out"});
        if (file_.encoded)
            encode();
        return std::move(result_);
    }

private:
    std::optional<std::string> take_program(std::string_view line)
    {
        std::string reason;
        const auto key = program_key(line, reason);
        if (!key)
            return reason;
        if (!keys_.insert(*key).second) {
            ++result_.duplicates;
            return std::nullopt;
        }
        for (unsigned shift = 0; shift < 32; shift += 8)
            result_.content.push_back(static_cast<char>(*key >> shift));
        ++result_.entries;
        return std::nullopt;
    }

    std::optional<std::string> take_line(std::string_view line)
    {
        if (auto reason = wrong_line(file_, line))
            return reason;
        result_.content.append(line).push_back('\n');
        ++result_.entries;
        return std::nullopt;
    }

    void encode()
    {
        const int length = static_cast<int>(result_.content.size());
        std::string encoded(static_cast<std::size_t>(sorvanic_kernel_base64encode_len(length)), '\0');
        const int written = sorvanic_kernel_base64encode(encoded.data(), result_.content.data(), length);
        encoded.resize(static_cast<std::size_t>(written) - 1);
        result_.content = std::move(encoded);
    }

    const policy_file& file_;
    compiled_file result_;
    std::unordered_set<std::uint32_t> keys_;
};

} // namespace

compiled_file compile_policy_file(const policy_file& file, std::string_view text)
{
    compiled_file result;
    if (const auto error = not_plain_text(text)) {
        result.errors.push_back(*error);
        return result;
    }
    compiler lines(file);
    std::size_t number = 0;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        lines.take(++number, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines.finish(std::max<std::size_t>(number, 1));
}

} // namespace cli
