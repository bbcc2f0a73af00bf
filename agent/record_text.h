#ifndef SORVANIC_AGENT_RECORD_TEXT_H
#define SORVANIC_AGENT_RECORD_TEXT_H

#include <string>

#include "agent/record.h"

namespace agent {

/// The record in one line for people, without a line end. Bytes that a terminal would act on, or
/// that end a line, are shown as \xHH, a backslash
/// doubled.
std::string to_text(const record& decoded);

} // namespace agent

#endif
