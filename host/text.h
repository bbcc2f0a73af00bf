#ifndef SORVANIC_HOST_TEXT_H
#define SORVANIC_HOST_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// The text of an error number. Any thread.
std::string error_text(int number);

/// Foreign text made safe for a line in a terminal. Each byte of a line end, of a terminal command (the C0
/// and C1 controls, in one byte or as UTF-8) and of invalid UTF-8 becomes \xHH; a backslash is doubled.
std::string visible(std::string_view text);

/// The same of a text that may be of any length: at most `most` bytes of it, whole characters, then "...".
std::string brief(std::string_view text, std::size_t most = 200);

} // namespace host

#endif
