#include "source/table_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <utility>

#include "policy/base64.h"
#include "source/line_text.h"
#include "source/program_digest.h"
#include "source/table_lines.h"

namespace source {

namespace {

std::string_view without_trailing_blanks(std::string_view line)
{
    return line.substr(0, line.find_last_not_of(blanks) + 1);
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
std::optional<std::uint32_t> program_key(std::string_view line, source_entry& entry, std::string& reason)
{
    if (line.front() == '/') {
        const auto digest = digest_program(std::string(line), reason);
        if (digest) {
            entry.path = line;
            entry.md5 = digest->md5;
            return digest->key;
        }
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

std::string too_many(const policy_file& file)
{
    if (file.form == policy_form::programs)
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
    if (text.starts_with("\xEF\xBB\xBF"))
        return source_error{1, "a byte order mark; save the file as UTF-8 without one"};
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
        const std::optional<std::string> reason = file_.form == policy_form::programs
                                                      ? take_program(number, without_trailing_blanks(line))
                                                      : take_line(number, line);
        if (reason)
            result_.errors.push_back({number, *reason});
        else if (result_.entries > before && before == file_.most_entries)
            result_.errors.push_back({number, too_many(file_)});
    }

    compiled_file finish(std::size_t last_line)
    {
        const bool one_value =
            file_.form == policy_form::status || file_.form == policy_form::module_switches;
        if (one_value && result_.entries == 0 && result_.errors.empty())
            result_.errors.push_back({last_line, "no value; write one, or leave the file out"});
        if (file_.encoded)
            encode();
        return std::move(result_);
    }

private:
    std::optional<std::string> take_program(std::size_t at, std::string_view line)
    {
        std::string reason;
        source_entry entry{at, {}, {}, {}};
        const auto key = program_key(line, entry, reason);
        if (!key)
            return reason;
        entry.text = key_text(*key);
        result_.lines.push_back(std::move(entry));
        if (!keys_.insert(*key).second) {
            ++result_.duplicates;
            return std::nullopt;
        }
        for (unsigned shift = 0; shift < 32; shift += 8)
            result_.content.push_back(static_cast<char>(*key >> shift));
        ++result_.entries;
        return std::nullopt;
    }

    std::optional<std::string> take_line(std::size_t at, std::string_view line)
    {
        if (auto reason = wrong_line(file_, line))
            return reason;
        result_.lines.push_back({at, std::string(line), {}, {}});
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

} // namespace source
