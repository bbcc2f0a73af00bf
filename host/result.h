#ifndef SORVANIC_HOST_RESULT_H
#define SORVANIC_HOST_RESULT_H

#include <cerrno>

#include <tl/expected.hpp>

// What asking the host for something yields.

namespace host {

/// A value, or the host's error number (errno), never 0.
template <typename Value>
using result = tl::expected<Value, int>;

inline tl::unexpected<int> failure(int error)
{
    return tl::unexpected<int>(error);
}

/// Whether an error number tells of what this process lacks, and so nothing of what it asked about.
constexpr bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS || error == EAGAIN ||
           error == EINTR || error == EIO;
}

/// Whether the host denies this process something. Only then may it be taken for "nobody can tell".
constexpr bool is_denial(int error)
{
    return error == EPERM || error == EACCES;
}

} // namespace host

#endif
