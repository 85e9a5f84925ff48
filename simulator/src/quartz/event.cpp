#include "quartz/event.h"

#include <unistd.h>

#include <cstdarg>
#include <memory>
#include <string>

#include "core/failure.h"
#include "quartz/session.h"

namespace simulator {
namespace {

// The keyboard type of sources for which nobody says another.
constexpr CGEventSourceKeyboardType default_keyboard_type = 40;

class event_source_t final : public object_t {
  public:
    static constexpr type_e type = type_e::event_source;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    CGEventSourceKeyboardType keyboard_type = default_keyboard_type;
};

// Null is right everywhere: it stands for the default source.
CGEventSourceKeyboardType keyboard_type_of(CGEventSourceRef source, const char* function) {
    return source == nullptr ? default_keyboard_type
                             : object_of<event_source_t>(source, function).keyboard_type;
}

std::int64_t& field_of(CGEventRef event, CGEventField field, const char* function) {
    event_values_t& values = object_of<event_t>(event, function).values;
    switch (field) {
        case kCGMouseEventClickState:
            return values.click_state;
        case kCGMouseEventButtonNumber:
            return values.button;
        case kCGKeyboardEventKeycode:
            return values.key_code;
        case kCGScrollWheelEventDeltaAxis1:
            return values.scroll.line_axis_1;
        case kCGScrollWheelEventDeltaAxis2:
            return values.scroll.line_axis_2;
        case kCGEventTargetUnixProcessID:
            return values.target_pid;
        case kCGEventSourceUnixProcessID:
            return values.source_pid;
        case kCGScrollWheelEventPointDeltaAxis1:
            return values.scroll.point_axis_1;
        case kCGScrollWheelEventPointDeltaAxis2:
            return values.scroll.point_axis_2;
        case kCGScrollWheelEventScrollPhase:
            return values.scroll.phase;
        case kCGScrollWheelEventMomentumPhase:
            return values.scroll.momentum_phase;
        case kCGScrollWheelEventIsContinuous:
            break;  // is no number; its callers know it
    }
    not_modelled(function, "field " + std::to_string(field));
}

event_values_t values_of_new_event(CGEventType type) {
    event_values_t values;
    values.type = type;
    values.location = session_t::instance().pointer();
    values.source_pid = getpid();
    return values;
}

}  // namespace

CGEventRef publish_event(const event_values_t& values, const char* function) {
    return static_cast<CGEventRef>(
        const_cast<void*>(publish(std::make_unique<event_t>(values), function)));
}

button_types_t types_of_button(std::uint32_t button) {
    switch (button) {
        case kCGMouseButtonLeft:
            return {kCGEventLeftMouseDown, kCGEventLeftMouseUp, kCGEventLeftMouseDragged};
        case kCGMouseButtonRight:
            return {kCGEventRightMouseDown, kCGEventRightMouseUp, kCGEventRightMouseDragged};
        default:
            return {kCGEventOtherMouseDown, kCGEventOtherMouseUp, kCGEventOtherMouseDragged};
    }
}

bool is_key_event(CGEventType type) {
    return type == kCGEventKeyDown || type == kCGEventKeyUp || type == kCGEventFlagsChanged;
}

}  // namespace simulator

using simulator::event_source_t;
using simulator::event_t;
using simulator::event_values_t;
using simulator::not_modelled;
using simulator::object_of;
using simulator::shall_fail;

extern "C" {

CGEventRef CGEventCreate(CGEventSourceRef source) {
    if (source != nullptr) {
        not_modelled(__func__, "a source");
    }
    if (shall_fail(__func__)) {
        return nullptr;
    }
    return simulator::publish_event(simulator::values_of_new_event(kCGEventNull), __func__);
}

CGEventRef CGEventCreateMouseEvent(CGEventSourceRef source, CGEventType mouseType,
                                   CGPoint mouseCursorPosition, CGMouseButton mouseButton) {
    if (source != nullptr) {
        not_modelled(__func__, "a source");
    }
    if (mouseType != kCGEventLeftMouseDown && mouseType != kCGEventLeftMouseUp) {
        not_modelled(__func__, "event type " + std::to_string(mouseType));
    }
    if (mouseButton != kCGMouseButtonLeft) {
        not_modelled(__func__, "button " + std::to_string(mouseButton));
    }
    if (shall_fail(__func__)) {
        return nullptr;
    }
    event_values_t values = simulator::values_of_new_event(mouseType);
    values.location = mouseCursorPosition;
    values.click_state = 1;
    return simulator::publish_event(values, __func__);
}

CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown) {
    event_values_t values =
        simulator::values_of_new_event(keyDown ? kCGEventKeyDown : kCGEventKeyUp);
    values.key_code = virtualKey;
    if (source != nullptr) {
        object_of<event_source_t>(source, __func__);
    }
    if (shall_fail(__func__)) {
        return nullptr;
    }
    return simulator::publish_event(values, __func__);
}

CGEventRef CGEventCreateScrollWheelEvent(CGEventSourceRef source, CGScrollEventUnit units,
                                         std::uint32_t wheelCount, std::int32_t wheel1, ...) {
    if (source != nullptr) {
        not_modelled(__func__, "a source");
    }
    if (units != kCGScrollEventUnitLine) {
        not_modelled(__func__, "a unit other than lines");
    }
    if (wheelCount != 1 && wheelCount != 2) {
        not_modelled(__func__, std::to_string(wheelCount) + " wheels");
    }
    event_values_t values = simulator::values_of_new_event(kCGEventScrollWheel);
    values.scroll_wheels = wheelCount;
    values.scroll.line_axis_1 = wheel1;
    if (wheelCount == 2) {
        std::va_list others;
        va_start(others, wheel1);
        values.scroll.line_axis_2 = va_arg(others, std::int32_t);
        va_end(others);
    }
    if (shall_fail(__func__)) {
        return nullptr;
    }
    return simulator::publish_event(values, __func__);
}

CGPoint CGEventGetLocation(CGEventRef event) {
    return object_of<event_t>(event, __func__).values.location;
}

void CGEventSetFlags(CGEventRef event, CGEventFlags flags) {
    object_of<event_t>(event, __func__).values.flags = flags;
}

CGEventType CGEventGetType(CGEventRef event) {
    return object_of<event_t>(event, __func__).values.type;
}

void CGEventSetType(CGEventRef event, CGEventType type) {
    auto& values = object_of<event_t>(event, __func__).values;
    if (!simulator::is_key_event(values.type) || !simulator::is_key_event(type)) {
        simulator::not_modelled(__func__, "between other events than those of keys");
    }
    values.type = type;
}

std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field) {
    if (field == kCGScrollWheelEventIsContinuous) {
        return object_of<event_t>(event, __func__).values.scroll.continuous ? 1 : 0;
    }
    return simulator::field_of(event, field, __func__);
}

void CGEventSetIntegerValueField(CGEventRef event, CGEventField field, std::int64_t value) {
    simulator::field_of(event, field, __func__) = value;
}

void CGEventPost(CGEventTapLocation tap, CGEventRef event) {
    const event_values_t& values = object_of<event_t>(event, __func__).values;
    if (tap != kCGSessionEventTap) {
        not_modelled(__func__, "a location other than the session");
    }
    if (values.type == kCGEventNull) {
        not_modelled(__func__, "an event without a type");
    }
    simulator::session_t::instance().post(values);
}

CGEventSourceRef CGEventSourceCreate(CGEventSourceStateID stateID) {
    if (stateID != kCGEventSourceStateCombinedSessionState) {
        not_modelled(__func__, "a state other than the combined session's");
    }
    if (shall_fail(__func__)) {
        return nullptr;
    }
    return static_cast<CGEventSourceRef>(
        const_cast<void*>(simulator::publish(std::make_unique<event_source_t>(), __func__)));
}

CGEventSourceKeyboardType CGEventSourceGetKeyboardType(CGEventSourceRef source) {
    return simulator::keyboard_type_of(source, __func__);
}

void CGEventSourceSetKeyboardType(CGEventSourceRef source, CGEventSourceKeyboardType keyboardType) {
    if (source != nullptr) {
        object_of<event_source_t>(source, __func__).keyboard_type = keyboardType;
    }
}

}  // extern "C"
