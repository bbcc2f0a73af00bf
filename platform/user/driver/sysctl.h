#ifndef SORVANIC_PLATFORM_USER_DRIVER_SYSCTL_H
#define SORVANIC_PLATFORM_USER_DRIVER_SYSCTL_H

#include <optional>
#include <string>
#include <string_view>

// The driver's side of sysctl: reads the values that the engine has registered.

namespace platform {

/// The text of the value at `path` ("directory/name", relative to the root of the tree), as its
/// handler renders it; nothing when there is no such value or nobody may read it.
std::optional<std::string> sysctl_read(std::string_view path);

/// Writes a value through its handler. 0, or a negative error number: -2 no such value, -13 its
/// mode lets nobody write it, else the handler's.
int sysctl_write(std::string_view path, std::string_view text);

} // namespace platform

#endif
