#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Keys and modifier flags in words, for scenarios and for what the player prints.
namespace simulator::player {

// The virtual key code of a key named as on the keyboard ("C", "5", "Left Arrow", "F5", "Command"),
// or written as "code 33". Nothing for an unknown name.
std::optional<std::uint16_t> key_code(const std::string& name);

// The other way round; "code N" for a code without a name.
std::string key_name(std::int64_t code);

// A key event as one text: "C down [Command]", modifiers in a fixed order, no brackets without any.
std::string key_event_text(std::int64_t code, bool down, std::uint64_t flags);

// Whether key_event_text may give this text.
bool is_key_event_text(const std::string& text);

}  // namespace simulator::player
