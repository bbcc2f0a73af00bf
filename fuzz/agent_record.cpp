// A message as an agent gets it. Whatever a record holds can be shown, and is one line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "agent/record.h"
#include "agent/record_json.h"
#include "agent/record_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto decoded = agent::decode({reinterpret_cast<const char*>(data), size});
    if (!decoded)
        return 0;
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    if (std::ranges::any_of(agent::to_text(*decoded), is_control))
        std::abort();
    if (agent::to_json(*decoded).dump().find('\n') != std::string::npos)
        std::abort();
    return 0;
}
