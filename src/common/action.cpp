#include "common/action.h"

#include <cstdint>
#include <optional>

#include "common/json_number.h"

namespace {

std::string path_from(const nlohmann::json& params) {
    if (!params.is_object()) {
        return {};
    }
    const auto path = params.find("path");
    return path != params.end() && path->is_string() ? path->get<std::string>() : std::string();
}

std::optional<std::uint32_t> action_code(const nlohmann::json& member) {
    if (member.is_boolean()) {
        return member.get<bool>() ? 1U : 0U;
    }
    return uint32_from_json(member);
}

template <typename alternative_t>
action_t with_params(const nlohmann::json& json) {
    const auto params = json.find("params");
    if (params == json.end() || !params->is_object()) {
        return default_action_t{};
    }
    return alternative_t(*params);
}

struct namer_t {
    using name_t = std::string_view;
    name_t operator()(const default_action_t&) const { return "default_action"; }
    name_t operator()(const do_nothing_t&) const { return "do_nothing"; }
    name_t operator()(const increase_volume_t&) const { return "increase_volume"; }
    name_t operator()(const decrease_volume_t&) const { return "decrease_volume"; }
    name_t operator()(const mute_volume_t&) const { return "mute_volume"; }
    name_t operator()(const increase_brightness_t&) const { return "increase_brightness"; }
    name_t operator()(const decrease_brightness_t&) const { return "decrease_brightness"; }
    name_t operator()(const copy_t&) const { return "copy"; }
    name_t operator()(const cut_t&) const { return "cut"; }
    name_t operator()(const paste_t&) const { return "paste"; }
    name_t operator()(const screenshot_t&) const { return "screenshot"; }
    name_t operator()(const minimize_window_t&) const { return "minimize_window"; }
    name_t operator()(const maximize_window_t&) const { return "maximize_window"; }
    name_t operator()(const close_window_t&) const { return "close_window"; }
    name_t operator()(const close_program_t&) const { return "close_program"; }
    name_t operator()(const open_file_t&) const { return "open_file"; }
    name_t operator()(const open_hovered_file_t&) const { return "open_hovered_file"; }
    name_t operator()(const go_back_t&) const { return "go_back"; }
    name_t operator()(const redo_t&) const { return "redo"; }
    name_t operator()(const open_emoji_menu_t&) const { return "open_emoji_menu"; }
    name_t operator()(const open_new_tab_t&) const { return "open_new_tab"; }
    name_t operator()(const move_to_left_desktop_tab_t&) const {
        return "move_to_left_desktop_tab";
    }
    name_t operator()(const move_to_right_desktop_tab_t&) const {
        return "move_to_right_desktop_tab";
    }
    name_t operator()(const swap_keyboard_input_language_t&) const {
        return "swap_keyboard_input_language";
    }
    name_t operator()(const shortcut_t&) const { return "shortcut"; }
    name_t operator()(const wheel_forward_t&) const { return "wheel_forward"; }
    name_t operator()(const wheel_backward_t&) const { return "wheel_backward"; }
    name_t operator()(const wheel_left_t&) const { return "wheel_left"; }
    name_t operator()(const wheel_right_t&) const { return "wheel_right"; }
    name_t operator()(const double_click_t&) const { return "double_click"; }
    name_t operator()(const open_standard_path_program_t&) const {
        return "open_standard_path_program";
    }
};

}  // namespace

open_file_t::open_file_t(const nlohmann::json& params) : path(path_from(params)) {}

open_standard_path_program_t::open_standard_path_program_t(const nlohmann::json& params)
    : path(path_from(params)) {}

shortcut_t::shortcut_t(const nlohmann::json& params) {
    if (!params.is_object()) {
        return;
    }
    const auto keys = params.find("combination");
    if (keys == params.end() || !keys->is_array()) {
        return;
    }
    combination.reserve(keys->size());
    for (const auto& key : *keys) {
        if (key.is_number()) {
            // A number out of range becomes a key that does not exist. Whoever presses the keys
            // leaves those out: a shortcut with a wrong key is that shortcut without the key.
            combination.push_back(static_cast<input_value_e>(
                uint32_from_json(key).value_or(static_cast<std::uint32_t>(input_value_e::none))));
        }
    }
}

action_t make_action(const nlohmann::json& json) {
    if (!json.is_object()) {
        return default_action_t{};
    }
    const auto member = json.find("action");
    if (member == json.end()) {
        return default_action_t{};
    }
    const auto code = action_code(*member);
    if (!code) {
        return default_action_t{};
    }
    // The codes are a contract with the front application, which writes them. close_program_t and
    // double_click_t have none on purpose: they are there for the executer and are not offered to
    // users, so no settings file can ask for them.
    switch (*code) {
        case 0:
            return do_nothing_t{};
        case 1:
            return increase_volume_t{};
        case 2:
            return decrease_volume_t{};
        case 3:
            return mute_volume_t{};
        case 4:
            return increase_brightness_t{};
        case 5:
            return decrease_brightness_t{};
        case 6:
            return copy_t{};
        case 7:
            return cut_t{};
        case 8:
            return paste_t{};
        case 9:
            return screenshot_t{};
        case 10:
            return minimize_window_t{};
        case 11:
            return maximize_window_t{};
        case 12:
            return close_window_t{};
        case 13:
            return with_params<open_file_t>(json);
        case 14:
            return open_hovered_file_t{};
        case 15:
            return go_back_t{};
        case 16:
            return redo_t{};
        case 17:
            return open_emoji_menu_t{};
        case 18:
            return open_new_tab_t{};
        case 19:
            return move_to_left_desktop_tab_t{};
        case 20:
            return move_to_right_desktop_tab_t{};
        case 21:
            return swap_keyboard_input_language_t{};
        case 22:
            return with_params<shortcut_t>(json);
        case 23:  // reserved: means the same as an unknown code, and must go on doing so
            return default_action_t{};
        case 24:
            return wheel_forward_t{};
        case 25:
            return wheel_backward_t{};
        case 26:
            return wheel_left_t{};
        case 27:
            return wheel_right_t{};
        case 28:
            return with_params<open_standard_path_program_t>(json);
        default:
            return default_action_t{};
    }
}

std::string_view action_name(const action_t& action) {
    return std::visit(namer_t{}, action);
}
