#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <array>
#include <cstdint>
#include <optional>

// A direction of the wheel as the user names it.
enum class wheel_e { forward, backward, left, right };

// Where the pointer is, in points from the main display's upper left corner; nothing when the
// system does not say. Any thread.
std::optional<CGPoint> pointer_location();

// Turns the wheel by one step of lines, as if the hand did. Nothing happens when the system makes
// no event. Any thread.
void post_wheel_step(wheel_e direction);

// A double click of the left button where the pointer is: all of it, or nothing when the system
// does not say where that is or does not make every event. Any thread.
void post_double_click();

// One scroll event, in lines: `vertical` is positive forward, `horizontal` to the right, and only
// given to an event of two wheels.
struct scroll_step_t {
    std::uint32_t wheel_count;
    std::int32_t vertical;
    std::int32_t horizontal;
};

// The event of one action in this direction: always three lines.
constexpr scroll_step_t scroll_step(wheel_e direction) {
    constexpr std::int32_t lines = 3;
    switch (direction) {
        case wheel_e::forward:
            return {1, lines, 0};
        case wheel_e::backward:
            return {1, -lines, 0};
        case wheel_e::left:
            return {2, 0, -lines};
        case wheel_e::right:
            return {2, 0, lines};
    }
    return {1, 0, 0};
}

// One event of a click; without a click state it keeps the one that the system gives it.
struct click_step_t {
    bool down = false;
    std::optional<std::int64_t> click_state;
};

// A double click as applications expect it: the first click is an ordinary one, the second says
// that it is the second of two.
inline constexpr std::array<click_step_t, 4> double_click_steps{{
    {true, std::nullopt},
    {false, std::nullopt},
    {true, 2},
    {false, 2},
}};
