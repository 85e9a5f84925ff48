#pragma once

#include <cstdint>

// The numbers of all three enumerations are a contract with the front application: the settings
// file carries them, so none may ever change its value.

// What the user did with the mouse (0 to 10), or a keyboard key inside a shortcut (106 to 222);
// 11 to 105 are unassigned.
// Values without a name are still valid values of the type: the settings file may hold any number.
enum class input_value_e : std::uint32_t {
    none = 0,
    left_button = 1,   // never captured
    right_button = 2,  // never captured
    middle_button = 3,
    x1_button = 4,
    x2_button = 5,
    vertical_scroll_negative = 6,  // never captured
    vertical_scroll_positive = 7,  // never captured
    horizontal_scroll_negative = 8,
    horizontal_scroll_positive = 9,
    // Cannot be held from its press to its release. Bound, its press is swallowed, its release
    // passes and nothing runs. Meant: only 1 to 9 can be held.
    corvane_extra_key = 10,

    // The keyboard as a PC enumerates it. The holes at 150, 171 and 211 to 218 are keys that a Mac
    // does not have; they stay, so that the keys behind them keep their numbers.
    keyboard_a = 106,
    keyboard_b = 107,
    keyboard_c = 108,
    keyboard_d = 109,
    keyboard_e = 110,
    keyboard_f = 111,
    keyboard_g = 112,
    keyboard_h = 113,
    keyboard_i = 114,
    keyboard_j = 115,
    keyboard_k = 116,
    keyboard_l = 117,
    keyboard_m = 118,
    keyboard_n = 119,
    keyboard_o = 120,
    keyboard_p = 121,
    keyboard_q = 122,
    keyboard_r = 123,
    keyboard_s = 124,
    keyboard_t = 125,
    keyboard_u = 126,
    keyboard_v = 127,
    keyboard_w = 128,
    keyboard_x = 129,
    keyboard_y = 130,
    keyboard_z = 131,
    keyboard_0 = 132,
    keyboard_1 = 133,
    keyboard_2 = 134,
    keyboard_3 = 135,
    keyboard_4 = 136,
    keyboard_5 = 137,
    keyboard_6 = 138,
    keyboard_7 = 139,
    keyboard_8 = 140,
    keyboard_9 = 141,
    keyboard_escape = 142,
    keyboard_control = 143,
    keyboard_shift = 144,
    keyboard_option = 145,
    keyboard_command = 146,
    keyboard_right_control = 147,
    keyboard_right_shift = 148,
    keyboard_right_option = 149,
    keyboard_right_command = 151,
    keyboard_right_bracket = 152,
    keyboard_left_bracket = 153,
    keyboard_semicolon = 154,
    keyboard_comma = 155,
    keyboard_period = 156,
    keyboard_quote = 157,
    keyboard_backslash = 158,
    keyboard_grave = 159,
    keyboard_equal = 160,
    keyboard_minus = 161,
    keyboard_space = 162,
    keyboard_return = 163,
    keyboard_delete = 164,  // backspace
    keyboard_tab = 165,
    keyboard_caps_lock = 166,
    keyboard_page_up = 167,
    keyboard_page_down = 168,
    keyboard_end = 169,
    keyboard_home = 170,
    keyboard_forward_delete = 172,
    keyboard_keypad_plus = 173,
    keyboard_keypad_minus = 174,
    keyboard_keypad_multiply = 175,
    keyboard_keypad_divide = 176,
    keyboard_left_arrow = 177,
    keyboard_right_arrow = 178,
    keyboard_up_arrow = 179,
    keyboard_down_arrow = 180,
    keyboard_keypad_0 = 181,
    keyboard_keypad_1 = 182,
    keyboard_keypad_2 = 183,
    keyboard_keypad_3 = 184,
    keyboard_keypad_4 = 185,
    keyboard_keypad_5 = 186,
    keyboard_keypad_6 = 187,
    keyboard_keypad_7 = 188,
    keyboard_keypad_8 = 189,
    keyboard_keypad_9 = 190,
    keyboard_f1 = 191,
    keyboard_f2 = 192,
    keyboard_f3 = 193,
    keyboard_f4 = 194,
    keyboard_f5 = 195,
    keyboard_f6 = 196,
    keyboard_f7 = 197,
    keyboard_f8 = 198,
    keyboard_f9 = 199,
    keyboard_f10 = 200,
    keyboard_f11 = 201,
    keyboard_f12 = 202,
    keyboard_f13 = 203,
    keyboard_f14 = 204,
    keyboard_f15 = 205,
    keyboard_f16 = 206,
    keyboard_f17 = 207,
    keyboard_f18 = 208,
    keyboard_f19 = 209,
    keyboard_f20 = 210,
    keyboard_keypad_enter = 219,
    keyboard_keypad_decimal = 220,
    keyboard_slash = 221,
    keyboard_iso_section = 222,
};

// The phase of an input. Any other value lets the event pass through.
enum class button_state_e : std::uint32_t {
    released = 0,
    pressed = 1,
    instant = 2,  // one step of the horizontal wheel: there is nothing to hold
};

// A mouse model. Any number but not_a_device is treated as a model, known or not.
enum class qlx_device_e : std::uint32_t {
    model_0 = 0,  // exists in the settings only; no HID device maps to it
    valtor_pro = 1,
    corvane = 2,
    not_a_device = 0xFFFFFFFF,  // -1: the last input came from a mouse that is not supported
};
