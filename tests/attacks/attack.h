#ifndef SORVANIC_TESTS_ATTACKS_ATTACK_H
#define SORVANIC_TESTS_ATTACKS_ATTACK_H

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>

// What an attack is written in. A program holds one family: PROGRAM ATTACK PLACE TRIES does one of
// them. PLACE is a directory that everybody may write to, with
//
//   closed/secret, closed/inner/   in a directory that rules close to everybody
//   up/closed/secret               the same, below a directory that can be renamed
//   listed, unlisted               programs, one on the white list, the other on no list
//
// and the exit status says what came out: worked, refused, or that this machine cannot have it.

namespace attack {

enum result : int { worked = 0, refused = 1, not_here = 77 };

struct entry {
    const char* name;
    result (*run)(const std::string& place, int tries);
};

/// The family's attacks.
extern const std::span<const entry> all;

/// `worked` when `done`; else tells errno and is `refused`.
inline result told(const char* what, bool done)
{
    if (done)
        return worked;
    const int error = errno;
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(error));
    return refused;
}

/// Whether the file can be read to its first byte.
bool can_read(const std::string& path);

/// Runs a program to its end in a child; whether it ended with status 0.
bool runs(const std::string& path);

} // namespace attack

#endif
