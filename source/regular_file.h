#ifndef SORVANIC_SOURCE_REGULAR_FILE_H
#define SORVANIC_SOURCE_REGULAR_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace source {

/// Hands the content of the regular file at `path` to `take`, in pieces and in order. Anything
/// that is not a regular file is not read: a fifo would wait for ever, and a directory has no
/// content. Returns why the file could not be read whole, or nothing when it was; then `take`
/// may have been called for a part of it.
std::optional<std::string> read_regular_file(const std::string& path,
                                             const std::function<void(std::string_view)>& take);

} // namespace source

#endif
