#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/input_value.h"

// What the capture decides, over plain values that its callbacks read from the system. Nothing here
// calls the platform. Any thread.

// The model with these numbers ("VendorID" and "ProductID" of the device), not_a_device for others.
qlx_device_e model_of(std::uint32_t vendor_id, std::uint32_t product_id);

// Whether values of the Keyboard/Keypad page from this model stand for its buttons.
bool sends_keys_for_buttons(qlx_device_e device);

// The input of an other-mouse event with this button number (0 left, 1 right, 2 middle, ...); none
// for a button that is never captured.
std::optional<input_value_e> input_of_button(std::int64_t button);

// The fields of a scroll event that tell one step of a horizontal wheel from everything else.
struct scroll_t {
    std::int64_t point_axis_1 = 0;  // vertical, in pixels
    std::int64_t point_axis_2 = 0;  // horizontal, in pixels
    std::int64_t line_axis_1 = 0;   // vertical, in lines
    std::int64_t line_axis_2 = 0;   // horizontal, in lines
    std::int64_t is_continuous = 0;
    std::int64_t phase = 0;
    std::int64_t momentum_phase = 0;
};

// The input of one step of a horizontal wheel; none for a vertical step, for both axes at once, for
// a trackpad and for inertia.
std::optional<input_value_e> input_of_scroll(const scroll_t& scroll);

// The input for which this model sends this macOS virtual key code; none when the key is a key.
std::optional<input_value_e> input_of_key(qlx_device_e device, std::int64_t key_code);

// A process's short name without ".app" and what follows it. May be empty.
std::string cut_process_name(std::string_view name);
