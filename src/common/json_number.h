#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>

// The 32-bit value of a number of the settings file. An integer from 0 to 2^32-1 is taken as it is;
// a negative one, down to -2^31, wraps, so that -1 gives 0xFFFFFFFF; a fraction is first truncated
// toward zero. Nothing for every other number, however large.
// Throws nlohmann::json::type_error 302 for a value that is not a number, booleans included.
std::optional<std::uint32_t> uint32_from_json(const nlohmann::json& json);
