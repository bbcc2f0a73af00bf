#ifndef SORVANIC_HOST_TEXT_H
#define SORVANIC_HOST_TEXT_H

#include <string>
#include <string_view>

namespace host {

/// The text of an error number. Any thread.
std::string error_text(int number);

/// `text` from somewhere else, fit for a line that people read in a terminal: what ends a line, what
/// a terminal takes for a command (the C0 and C1 controls, in one byte or as UTF-8) and what is
/// no UTF-8 becomes \xHH for each byte; a backslash is doubled.
std::string visible(std::string_view text);

} // namespace host

#endif
