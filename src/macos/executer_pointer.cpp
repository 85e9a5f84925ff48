#include "macos/executer_pointer.h"

#include <cstddef>

#include "macos/cpf.h"

std::optional<CGPoint> pointer_location() {
    // A new event carries the place of the pointer.
    const auto event = cpf_t<CGEventRef>::adopt(CGEventCreate(nullptr));
    if (!event) {
        return std::nullopt;
    }
    return CGEventGetLocation(event.get());
}

void post_wheel_step(wheel_e direction) {
    const auto step = scroll_step(direction);
    const auto event = cpf_t<CGEventRef>::adopt(
        step.wheel_count == 1
            ? CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitLine, 1, step.vertical)
            : CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitLine, 2, step.vertical,
                                            step.horizontal));
    if (event) {
        CGEventPost(kCGSessionEventTap, event.get());
    }
}

void post_double_click() {
    std::optional<CGPoint> location;
    {
        // Made and left unused on purpose: the clicks come from no source, like the wheel steps, so
        // that no state of a source of our own gets into them.
        const auto source = cpf_t<CGEventSourceRef>::adopt(
            CGEventSourceCreate(kCGEventSourceStateCombinedSessionState));
        location = pointer_location();
    }
    if (!location) {
        return;  // a click in a place that nobody chose does harm
    }
    std::array<cpf_t<CGEventRef>, double_click_steps.size()> events;
    bool complete = true;
    for (std::size_t i = 0; i < events.size(); ++i) {
        events[i] = cpf_t<CGEventRef>::adopt(CGEventCreateMouseEvent(
            nullptr, double_click_steps[i].down ? kCGEventLeftMouseDown : kCGEventLeftMouseUp,
            *location, kCGMouseButtonLeft));
        complete = complete && events[i];
    }
    if (!complete) {
        return;  // half a click would leave the button down
    }
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (const auto click_state = double_click_steps[i].click_state) {
            CGEventSetIntegerValueField(events[i].get(), kCGMouseEventClickState, *click_state);
        }
    }
    for (const auto& event : events) {
        CGEventPost(kCGSessionEventTap, event.get());
    }
}
