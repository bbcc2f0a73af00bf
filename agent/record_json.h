#ifndef SORVANIC_AGENT_RECORD_JSON_H
#define SORVANIC_AGENT_RECORD_JSON_H

#include <nlohmann/json_fwd.hpp>

#include "agent/record.h"

namespace agent {

/// The record as an object: "kind" by its name, then each field of the record in its order. A text that is
/// not UTF-8 shows U+FFFD for each byte that does not fit, and its exact bytes follow it under its name and
/// "_hex". The object can be dumped for every record.
nlohmann::ordered_json to_json(const record& decoded);

} // namespace agent

#endif
