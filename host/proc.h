#ifndef SORVANIC_HOST_PROC_H
#define SORVANIC_HOST_PROC_H

#include <sys/types.h>

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace host {

/// The numbers of a text, between blanks.
class numbers {
public:
    explicit numbers(std::string_view text) : rest_(text) {}

    /// Reads the next one; false, and `into` unchanged, when there is none that fits.
    template <typename Number>
    bool next(Number& into, int base = 10)
    {
        const std::size_t begin = rest_.find_first_not_of("\t ");
        if (begin == std::string_view::npos)
            return false;
        rest_.remove_prefix(begin);
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), into, base);
        if (error != std::errc())
            return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }

private:
    std::string_view rest_;
};

/// The content of "/proc/TASK/status" in one reading (proc_pid_status(5)).
class proc_status {
public:
    /// Nothing when the task is gone, or its status cannot be read (errno).
    static std::optional<proc_status> of(pid_t task);

    /// The text behind "NAME:"; empty without such a line.
    std::string_view field(std::string_view name) const;

    /// The first number there, `otherwise` when there is none.
    template <typename Number>
    Number number(std::string_view name, Number otherwise, int base = 10) const
    {
        numbers(field(name)).next(otherwise, base);
        return otherwise;
    }

private:
    explicit proc_status(std::string text) : text_(std::move(text)) {}

    std::string text_;
};

/// The command name of a task; empty when it is gone.
std::string command_name(pid_t task);

} // namespace host

#endif
