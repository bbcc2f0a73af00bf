#ifndef SORVANIC_HOST_RESULT_H
#define SORVANIC_HOST_RESULT_H

#include <cerrno>

#include <tl/expected.hpp>

// The result of asking the host for something.

namespace host {

/// A value, or the host's error number (errno), never 0.
template <typename Value>
using result = tl::expected<Value, int>;

inline tl::unexpected<int> failure(int error)
{
    return tl::unexpected<int>(error);
}

/// Whether an error number says that this process lacks something, and so nothing about the object it asked
/// for.
constexpr bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS || error == EAGAIN ||
           error == EINTR || error == EIO;
}

/// Whether the host denies this process something. Only then may the answer count as unknown.
constexpr bool is_denial(int error)
{
    return error == EPERM || error == EACCES;
}

} // namespace host

#endif
