#ifndef SORVANIC_AGENT_RECORD_H
#define SORVANIC_AGENT_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// An audit record as an agent gets it (docs/formats.md), decoded. Texts have no particular encoding, because
// the names of files and programs are any bytes.

namespace agent {

/// An unknown program was refused.
struct untp_event {
    std::uint32_t key; ///< digest key of the program
    std::string path;
    std::string process; ///< command name of the process that wanted to run it
    std::uint32_t reserved;
    std::uint32_t path_class;
};

/// A verdict on a process touching a file, by the access rules and labels or by the program rules.
struct access_event {
    enum class by { rules_and_labels, program_rules } decided;
    std::string path;
    std::string process;
    std::string user;
    std::uint32_t decision;
    std::uint32_t path_class;
};

/// A reload was asked for.
struct plau_event {
    std::string user;
    std::uint32_t mask;
    std::uint32_t result;
};

/// The clock was set: seconds since 1970-01-01 00:00 UTC, their low 32 bits.
struct syst_event {
    std::uint32_t requested;
    std::uint32_t current;
};

using record = std::variant<untp_event, access_event, plau_event, syst_event>;

/// The record in a message, header included; nothing when it is no audit message, of a kind that
/// is not known, or shorter than its kind's record. Never reads past the message; a text that is
/// not terminated ends with its field.
std::optional<record> decode(std::string_view message);

/// The kind's number in a message, and its name: "untp", "faau", "pcau", "plau" or "syst".
std::uint32_t kind_of(const record& decoded);
const char* kind_name(const record& decoded);

/// The class of the record's path, when its kind has one.
std::optional<std::uint32_t> path_class_of(const record& decoded);

/// "system", "other", "home" or "no-user"; "unknown" for any other number.
const char* path_class_word(std::uint32_t path_class);

} // namespace agent

#endif
