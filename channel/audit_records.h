#ifndef SORVANIC_CHANNEL_AUDIT_RECORDS_H
#define SORVANIC_CHANNEL_AUDIT_RECORDS_H

#include <cstddef>

#include "platform/kernel/types.h"

// The audit records: the payloads of audit messages, whose flags say the kind. Little-endian
// numbers; texts are zero-filled arrays that always end in a zero.

// Kinds. 1, 5 and 7 are not used.
inline constexpr kernel::u32 audit_untp = 2; ///< an unknown program was refused
inline constexpr kernel::u32 audit_faau = 3; ///< a verdict of the access rules and labels
inline constexpr kernel::u32 audit_pcau = 4; ///< a verdict of the program rules
inline constexpr kernel::u32 audit_plau = 6; ///< a reload was asked for
inline constexpr kernel::u32 audit_syst = 8; ///< the clock was set

// Where a path lies, from the point of view of the user in whose name it was touched.
inline constexpr kernel::u32 path_class_system = 3; ///< below "/etc/", "/lib/" or "/lib64/"
inline constexpr kernel::u32 path_class_other = 4;
inline constexpr kernel::u32 path_class_home = 5; ///< begins with "/home/" and the user's name
inline constexpr kernel::u32 path_class_no_user = 6;

inline constexpr std::size_t audit_path_size = 1024;
inline constexpr std::size_t audit_user_size = 32;
inline constexpr std::size_t command_name_length = 15; ///< characters of a task's command name

struct untp_record {
    kernel::u32 key; ///< digest key of the refused program
    char path[audit_path_size];
    char process[audit_path_size]; ///< command name of the process that wanted to run it
    kernel::u32 reserved;          ///< 0
    kernel::u32 path_class;
};

static_assert(sizeof(untp_record) == 2060);
static_assert(offsetof(untp_record, key) == 0);
static_assert(offsetof(untp_record, path) == 4);
static_assert(offsetof(untp_record, process) == 1028);
static_assert(offsetof(untp_record, reserved) == 2052);
static_assert(offsetof(untp_record, path_class) == 2056);

/// Of both kinds faau and pcau.
struct access_record {
    char path[audit_path_size]; ///< of the object
    char process[audit_path_size];
    char user[audit_user_size];
    kernel::u32 decision; ///< faau: the verdict code; pcau: the program rule's code
    kernel::u32 path_class;
};

static_assert(sizeof(access_record) == 2088);
static_assert(offsetof(access_record, path) == 0);
static_assert(offsetof(access_record, process) == 1024);
static_assert(offsetof(access_record, user) == 2048);
static_assert(offsetof(access_record, decision) == 2080);
static_assert(offsetof(access_record, path_class) == 2084);

struct plau_record {
    char user[audit_user_size]; ///< of the process that asked
    kernel::u32 mask;           ///< the reload mask as it came
    kernel::u32 result;         ///< 1
};

static_assert(sizeof(plau_record) == 40);
static_assert(offsetof(plau_record, user) == 0);
static_assert(offsetof(plau_record, mask) == 32);
static_assert(offsetof(plau_record, result) == 36);

/// Seconds since 1970-01-01 00:00 UTC, their low 32 bits.
struct syst_record {
    kernel::u32 requested;
    kernel::u32 current; ///< when the request was made
};

static_assert(sizeof(syst_record) == 8);
static_assert(offsetof(syst_record, requested) == 0);
static_assert(offsetof(syst_record, current) == 4);

#endif
