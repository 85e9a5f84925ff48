#pragma once

#include <CoreGraphics/CGEvent.h>
#include <CoreGraphics/CGEventSource.h>

#include "control/input.h"
#include "core/object.h"

namespace simulator {

// What an event says. The desktop keeps and moves events as such values; a program holds them as
// event_t.
struct event_values_t {
    CGEventType type = kCGEventNull;
    CGPoint location{};
    CGEventFlags flags = 0;
    std::int64_t button = 0;
    std::int64_t click_state = 0;
    std::int64_t key_code = 0;
    std::int64_t source_pid = 0;  // 0: the hardware's
    std::int64_t target_pid = 0;  // 0: not known before the event is delivered
    scroll_fields_t scroll;
    std::uint32_t scroll_wheels = 0;
};

class event_t final : public object_t {
  public:
    static constexpr type_e type = type_e::event;
    explicit event_t(const event_values_t& what) : values(what) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    event_values_t values;
};

// Hands an event over to the caller of `function`, who owns it.
CGEventRef publish_event(const event_values_t& values, const char* function);

// The types of a button's events, the button counted as Quartz does.
struct button_types_t {
    CGEventType down;
    CGEventType up;
    CGEventType dragged;
};
button_types_t types_of_button(std::uint32_t button);

bool is_key_event(CGEventType type);

}  // namespace simulator
