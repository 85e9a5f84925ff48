#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>

// Parses a JSON text that somebody else wrote into `document`, which at a fault holds what came
// before it, as when the library reads from a stream. Throws nlohmann::json::exception for a text
// that is no JSON and for a number beyond the range of a double, and std::length_error where lists
// and objects stand within one another more than `levels` deep: the library parses without
// recursion, but prints and copies a document with it, and a text could end the process by its
// stack.
void parse_json(std::string_view text, std::size_t levels, nlohmann::json& document);
