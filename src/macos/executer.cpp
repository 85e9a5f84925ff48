#include "macos/executer.h"

#include <variant>

#include "common/log/log.h"
#include "macos/executer_chords.h"
#include "macos/executer_display.h"
#include "macos/executer_launch.h"
#include "macos/executer_pointer.h"
#include "macos/executer_sound.h"
#include "macos/executer_window.h"

namespace {

// How far one action moves the volume or the brightness, of a range from 0 to 1.
constexpr float step = 0.1F;

using input = input_value_e;

}  // namespace

void executer_t::process_action(const action_t& action) const {
    std::visit([this](const auto& alternative) { _execute(alternative); }, action);
}

void executer_t::_execute(const default_action_t&) const {}
void executer_t::_execute(const do_nothing_t&) const {}

void executer_t::_execute(const increase_volume_t&) const {
    QLX_LOG_INFO("Volume +");
    volume(step);
}
void executer_t::_execute(const decrease_volume_t&) const {
    QLX_LOG_INFO("Volume -");
    volume(-step);
}
void executer_t::_execute(const mute_volume_t&) const {
    QLX_LOG_INFO("Volume mute toggle");
    unmute_mute_main_sound_device();
}

void executer_t::_execute(const increase_brightness_t&) const {
    step_main_display_brightness(step);
}
void executer_t::_execute(const decrease_brightness_t&) const {
    step_main_display_brightness(-step);
}

void executer_t::_execute(const copy_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_c});
}
void executer_t::_execute(const cut_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_x});
}
void executer_t::_execute(const paste_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_v});
}
void executer_t::_execute(const screenshot_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_shift, input::keyboard_5});
}

void executer_t::_execute(const minimize_window_t&) const {
    minimize_window_under_cursor();
}
void executer_t::_execute(const maximize_window_t&) const {
    maximize_window_under_cursor();
}
void executer_t::_execute(const close_window_t&) const {
    close_window_under_cursor();
}
void executer_t::_execute(const close_program_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_q});
}

void executer_t::_execute(const open_file_t& action) const {
    open_file(action.path);
}
// A placeholder: the settings may name it already, and until it has something to do, it swallows
// its input as do_nothing_t does.
void executer_t::_execute(const open_hovered_file_t&) const {}

// Undo, the counterpart of redo_t, and not a step back in an application's history.
void executer_t::_execute(const go_back_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_z});
}
void executer_t::_execute(const redo_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_shift, input::keyboard_z});
}
void executer_t::_execute(const open_emoji_menu_t&) const {
    _send_key_list({input::keyboard_control, input::keyboard_command, input::keyboard_space});
}
void executer_t::_execute(const open_new_tab_t&) const {
    _send_key_list({input::keyboard_command, input::keyboard_t});
}

void executer_t::_execute(const move_to_left_desktop_tab_t&) const {
    switch_desktop_left();
}
void executer_t::_execute(const move_to_right_desktop_tab_t&) const {
    switch_desktop_right();
}

void executer_t::_execute(const swap_keyboard_input_language_t&) const {
    _send_key_list({input::keyboard_control, input::keyboard_space});
}

void executer_t::_execute(const shortcut_t& action) const {
    if (action.combination.empty()) {
        QLX_LOG_ERROR("Invalid shortcut action: no inputs");
        return;
    }
    _send_key_list(action.combination);
}

void executer_t::_execute(const wheel_forward_t&) const {
    post_wheel_step(wheel_e::forward);
}
void executer_t::_execute(const wheel_backward_t&) const {
    post_wheel_step(wheel_e::backward);
}
void executer_t::_execute(const wheel_left_t&) const {
    post_wheel_step(wheel_e::left);
}
void executer_t::_execute(const wheel_right_t&) const {
    post_wheel_step(wheel_e::right);
}
void executer_t::_execute(const double_click_t&) const {
    post_double_click();
}

void executer_t::_execute(const open_standard_path_program_t& action) const {
    open_standard_path_program(action.path);
}

void executer_t::_send_key_list(const std::vector<input_value_e>& list) const {
    const key_list_t parts = split_key_list(list);
    _send_chord(parts.modifiers, parts.keys);
}

void executer_t::_send_chord(const std::vector<input_value_e>& modifiers,
                             const std::vector<input_value_e>& keys) const {
    post_key_events(chord_events(modifiers, keys));
}
