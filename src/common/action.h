#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/input_value.h"

// What the daemon can do in answer to an input. Plain values: copied into queues, caches and
// tables.

struct default_action_t {};  // nothing is bound: the event passes through
struct do_nothing_t {};      // the event is swallowed, and that is all
struct increase_volume_t {};
struct decrease_volume_t {};
struct mute_volume_t {};
struct increase_brightness_t {};
struct decrease_brightness_t {};
struct copy_t {};
struct cut_t {};
struct paste_t {};
struct screenshot_t {};
struct minimize_window_t {};
struct maximize_window_t {};
struct close_window_t {};
struct close_program_t {};
struct open_file_t {
    open_file_t() = default;
    // Takes "path" from a parameters object; anything but a string leaves it empty. Never fails.
    explicit open_file_t(const nlohmann::json& params);

    std::string path;  // UTF-8
};
struct open_hovered_file_t {};
struct go_back_t {};
struct redo_t {};
struct open_emoji_menu_t {};
struct open_new_tab_t {};
struct move_to_left_desktop_tab_t {};
struct move_to_right_desktop_tab_t {};
struct swap_keyboard_input_language_t {};
struct shortcut_t {
    shortcut_t() = default;
    // Takes the numbers of the array "combination", in order; everything else in it is skipped, and
    // a number that no key can have becomes a value without a key. Never fails.
    explicit shortcut_t(const nlohmann::json& params);

    std::vector<input_value_e> combination;  // may be empty; a key that stands twice stays twice
};
struct wheel_forward_t {};
struct wheel_backward_t {};
struct wheel_left_t {};
struct wheel_right_t {};
struct double_click_t {};
struct open_standard_path_program_t {
    open_standard_path_program_t() = default;
    // As open_file_t.
    explicit open_standard_path_program_t(const nlohmann::json& params);

    std::string path;  // UTF-8
};

// The order is fixed: index 0 means "not handled" wherever an action is looked at.
using action_t =
    std::variant<default_action_t, do_nothing_t, increase_volume_t, decrease_volume_t,
                 mute_volume_t, increase_brightness_t, decrease_brightness_t, copy_t, cut_t,
                 paste_t, screenshot_t, minimize_window_t, maximize_window_t, close_window_t,
                 close_program_t, open_file_t, open_hovered_file_t, go_back_t, redo_t,
                 open_emoji_menu_t, open_new_tab_t, move_to_left_desktop_tab_t,
                 move_to_right_desktop_tab_t, swap_keyboard_input_language_t, shortcut_t,
                 wheel_forward_t, wheel_backward_t, wheel_left_t, wheel_right_t, double_click_t,
                 open_standard_path_program_t>;

// Builds an action from one action object of the settings file. Whatever it cannot use gives
// default_action_t; only an "action" member that is neither number nor boolean throws
// (nlohmann::json::type_error 302).
action_t make_action(const nlohmann::json& json);

// The action's name for the log: a static string, never empty.
// Throws std::bad_variant_access for a valueless variant.
std::string_view action_name(const action_t& action);
