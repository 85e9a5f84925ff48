#pragma once

#include <cstdint>

#include "common/input_value.h"

// Set in the answer of input_to_vk when the input has a key code: 0 is a key code too.
inline constexpr std::uint32_t vk_present = 0x10000;

// The macOS virtual key code of a keyboard input in the low 16 bits, with vk_present; 0 for an
// input that is no key of a Mac's keyboard. Takes any number (shortcuts come from the settings
// file).
std::uint32_t input_to_vk(input_value_e input);

// Whether a shortcut holds this input down around its other keys.
bool is_modifier(input_value_e input);

// The event flag that goes with a modifier, the same for both sides of the keyboard; 0 for any
// other input.
std::uint64_t modifier_mask(input_value_e input);
