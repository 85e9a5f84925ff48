#pragma once

#include <vector>

#include "common/action.h"
#include "common/input_value.h"

// Performs actions. Holds no state; every operation returns when its calls to the system have
// returned, and failures are logged where they happen. On one thread at a time: the action
// worker's.
class executer_t {
  public:
    // Does not throw, save std::bad_alloc and, for a valueless action, std::bad_variant_access.
    void process_action(const action_t& action) const;

  private:
    void _execute(const default_action_t&) const;
    void _execute(const do_nothing_t&) const;
    void _execute(const increase_volume_t&) const;
    void _execute(const decrease_volume_t&) const;
    void _execute(const mute_volume_t&) const;
    void _execute(const increase_brightness_t&) const;
    void _execute(const decrease_brightness_t&) const;
    void _execute(const copy_t&) const;
    void _execute(const cut_t&) const;
    void _execute(const paste_t&) const;
    void _execute(const screenshot_t&) const;
    void _execute(const minimize_window_t&) const;
    void _execute(const maximize_window_t&) const;
    void _execute(const close_window_t&) const;
    void _execute(const close_program_t&) const;
    void _execute(const open_file_t& action) const;
    void _execute(const open_hovered_file_t&) const;
    void _execute(const go_back_t&) const;
    void _execute(const redo_t&) const;
    void _execute(const open_emoji_menu_t&) const;
    void _execute(const open_new_tab_t&) const;
    void _execute(const move_to_left_desktop_tab_t&) const;
    void _execute(const move_to_right_desktop_tab_t&) const;
    void _execute(const swap_keyboard_input_language_t&) const;
    void _execute(const shortcut_t& action) const;
    void _execute(const wheel_forward_t&) const;
    void _execute(const wheel_backward_t&) const;
    void _execute(const wheel_left_t&) const;
    void _execute(const wheel_right_t&) const;
    void _execute(const double_click_t&) const;
    void _execute(const open_standard_path_program_t& action) const;

    // Sends the list as one chord: its modifiers, in order, around its other keys, in order.
    void _send_key_list(const std::vector<input_value_e>& list) const;
    void _send_chord(const std::vector<input_value_e>& modifiers,
                     const std::vector<input_value_e>& keys) const;
};
