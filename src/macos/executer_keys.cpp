#include "macos/executer_keys.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::uint32_t first_key = 106;
constexpr std::uint32_t last_key = 222;
constexpr std::size_t key_count = last_key - first_key + 1;

constexpr std::uint32_t first_modifier = 143;
constexpr std::uint32_t modifier_hole = 150;
constexpr std::uint32_t last_modifier = 151;

// The other keys that a Mac does not have.
constexpr std::uint32_t editing_hole = 171;
constexpr std::uint32_t first_function_hole = 211;
constexpr std::uint32_t last_function_hole = 218;

// The platform's virtual key codes of the ANSI keyboard (HIToolbox/Events.h), in the order of
// input_value_e from keyboard_a on. A hole's code is 0, so that the answer for it is 0 as a whole.
constexpr std::uint32_t hole = 0;
constexpr std::array<std::uint32_t, key_count> codes{
    // 106: A to Z
    0x00, 0x0B, 0x08, 0x02, 0x0E, 0x03, 0x05, 0x04, 0x22, 0x26, 0x28, 0x25, 0x2E, 0x2D, 0x1F, 0x23,
    0x0C, 0x0F, 0x01, 0x11, 0x20, 0x09, 0x0D, 0x07, 0x10, 0x06,
    // 132: 0 to 9
    0x1D, 0x12, 0x13, 0x14, 0x15, 0x17, 0x16, 0x1A, 0x1C, 0x19,
    // 142: Escape
    0x35,
    // 143: Control, Shift, Option, Command, then those of the right
    0x3B, 0x38, 0x3A, 0x37, 0x3E, 0x3C, 0x3D, hole, 0x36,
    // 152: right and left bracket, semicolon, comma, period, quote, backslash, grave, equal, minus
    0x1E, 0x21, 0x29, 0x2B, 0x2F, 0x27, 0x2A, 0x32, 0x18, 0x1B,
    // 162: Space, Return, Delete, Tab, Caps Lock
    0x31, 0x24, 0x33, 0x30, 0x39,
    // 167: Page Up, Page Down, End, Home, hole, Forward Delete
    0x74, 0x79, 0x77, 0x73, hole, 0x75,
    // 173: keypad plus, minus, multiply, divide
    0x45, 0x4E, 0x43, 0x4B,
    // 177: left, right, up, down
    0x7B, 0x7C, 0x7E, 0x7D,
    // 181: keypad 0 to 9 (the platform leaves 0x5A to F20)
    0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5B, 0x5C,
    // 191: F1 to F20
    0x7A, 0x78, 0x63, 0x76, 0x60, 0x61, 0x62, 0x64, 0x65, 0x6D, 0x67, 0x6F, 0x69, 0x6B, 0x71, 0x6A,
    0x40, 0x4F, 0x50, 0x5A,
    // 211: eight holes
    hole, hole, hole, hole, hole, hole, hole, hole,
    // 219: keypad Enter, keypad decimal, slash, ISO section
    0x4C, 0x41, 0x2C, 0x0A};

// Which inputs have a code, beside the codes: the A key's is 0, as a hole's.
constexpr std::array<std::uint32_t, key_count> present = [] {
    std::array<std::uint32_t, key_count> flags{};
    for (std::uint32_t key = first_key; key <= last_key; ++key) {
        const bool is_hole = key == modifier_hole || key == editing_hole ||
                             (key >= first_function_hole && key <= last_function_hole);
        flags[key - first_key] = is_hole ? 0 : vk_present;
    }
    return flags;
}();

// Quartz event flags (CGEventTypes.h). The sides of the keyboard are not told apart, as keyboard
// equivalents of applications do not tell them apart either.
constexpr std::uint64_t shift_mask = 0x20000;
constexpr std::uint64_t control_mask = 0x40000;
constexpr std::uint64_t option_mask = 0x80000;
constexpr std::uint64_t command_mask = 0x100000;

constexpr std::array<std::uint64_t, last_modifier - first_modifier + 1> masks{
    control_mask, shift_mask,  option_mask, command_mask, control_mask,
    shift_mask,   option_mask, 0,           command_mask};

}  // namespace

std::uint32_t input_to_vk(input_value_e input) {
    const auto number = static_cast<std::uint32_t>(input);
    if (number < first_key || number > last_key) {
        return 0;
    }
    return present[number - first_key] | codes[number - first_key];
}

bool is_modifier(input_value_e input) {
    const auto number = static_cast<std::uint32_t>(input);
    return number >= first_modifier && number <= last_modifier && number != modifier_hole;
}

std::uint64_t modifier_mask(input_value_e input) {
    const auto number = static_cast<std::uint32_t>(input);
    return number < first_modifier || number > last_modifier ? 0 : masks[number - first_modifier];
}
