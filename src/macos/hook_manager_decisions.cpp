#include "macos/hook_manager_decisions.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "macos/device_mappings.h"

namespace {

// What the models' side buttons send when they arrive as keys, in the platform's virtual key codes
// for the ANSI keyboard: the firmware of each model fixes it.
constexpr std::array<std::int64_t, 3> valtor_pro_x1_keys{
    33,   // Left Bracket
    41,   // Semicolon
    123,  // Left Arrow
};
constexpr std::array<std::int64_t, 3> valtor_pro_x2_keys{
    30,   // Right Bracket
    39,   // Quote
    124,  // Right Arrow
};
constexpr std::array<std::pair<std::int64_t, input_value_e>, 3> corvane_keys{{
    {123, input_value_e::x1_button},        // Left Arrow
    {124, input_value_e::x2_button},        // Right Arrow
    {3, input_value_e::corvane_extra_key},  // F
}};

bool holds(std::span<const std::int64_t> keys, std::int64_t key_code) {
    return std::find(keys.begin(), keys.end(), key_code) != keys.end();
}

}  // namespace

qlx_device_e model_of(std::uint32_t vendor_id, std::uint32_t product_id) {
    const auto row = std::find_if(
        device_mappings.begin(), device_mappings.end(), [&](const device_mapping_t& mapping) {
            return mapping.vendor_id == vendor_id && mapping.product_id == product_id;
        });
    return row == device_mappings.end() ? qlx_device_e::not_a_device : row->device;
}

bool sends_keys_for_buttons(qlx_device_e device) {
    return device == qlx_device_e::valtor_pro || device == qlx_device_e::corvane;
}

std::optional<input_value_e> input_of_button(std::int64_t button) {
    switch (button) {
        case 2:
            return input_value_e::middle_button;
        case 3:
            return input_value_e::x1_button;
        case 4:
            return input_value_e::x2_button;
        default:
            return std::nullopt;
    }
}

std::optional<input_value_e> input_of_scroll(const scroll_t& scroll) {
    // Slow steps of some wheels come in lines only, without a distance in pixels.
    const std::int64_t horizontal =
        scroll.point_axis_2 != 0 ? scroll.point_axis_2 : scroll.line_axis_2;
    if (horizontal == 0 || scroll.point_axis_1 != 0 || scroll.line_axis_1 != 0) {
        return std::nullopt;
    }
    if (scroll.is_continuous != 0 || scroll.phase != 0 || scroll.momentum_phase != 0) {
        return std::nullopt;
    }
    return horizontal < 0 ? input_value_e::horizontal_scroll_negative
                          : input_value_e::horizontal_scroll_positive;
}

std::optional<input_value_e> input_of_key(qlx_device_e device, std::int64_t key_code) {
    if (device == qlx_device_e::valtor_pro) {
        if (holds(valtor_pro_x1_keys, key_code)) {
            return input_value_e::x1_button;
        }
        if (holds(valtor_pro_x2_keys, key_code)) {
            return input_value_e::x2_button;
        }
    }
    if (device == qlx_device_e::corvane) {
        for (const auto& [code, input] : corvane_keys) {
            if (code == key_code) {
                return input;
            }
        }
    }
    return std::nullopt;
}

std::string cut_process_name(std::string_view name) {
    return std::string(name.substr(0, name.find(".app")));
}
