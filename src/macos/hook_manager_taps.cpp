// The tap half of the capture: which events of the mouse in use are taken.

#include <libproc.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "common/log/log.h"
#include "macos/hit_test.h"
#include "macos/hook_manager.h"
#include "macos/hook_manager_decisions.h"
#include "macos/hook_manager_impl.h"

namespace {

constexpr auto tap_failure = "CGEventTapCreate failed (Accessibility/Input Monitoring needed)";

template <typename... types_t>
constexpr CGEventMask mask_of(types_t... types) {
    return ((CGEventMask{1} << types) | ...);
}

struct tap_t {
    cpf_t<CFMachPortRef> port;
    cpf_t<CFRunLoopSourceRef> source;
};

// An enabled tap on the current run loop; without port and source when the system refuses it.
tap_t create_tap(CGEventMask mask, CGEventTapCallBack callback, void* user_info) {
    tap_t tap;
    tap.port = cpf_t<CFMachPortRef>::adopt(CGEventTapCreate(kCGHIDEventTap, kCGHeadInsertEventTap,
                                                            kCGEventTapOptionDefault, mask,
                                                            callback, user_info));
    if (!tap.port) {
        return {};
    }
    tap.source = cpf_t<CFRunLoopSourceRef>::adopt(
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap.port.get(), 0));
    if (!tap.source) {
        // Nobody would answer this tap, and every event would wait for it.
        CFMachPortInvalidate(tap.port.get());
        return {};
    }
    CFRunLoopAddSource(CFRunLoopGetCurrent(), tap.source.get(), kCFRunLoopCommonModes);
    CGEventTapEnable(tap.port.get(), true);
    return tap;
}

bool is_disabled_notification(CGEventType type) {
    return type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput;
}

// A disabled tap is not enabled again: the permission may be gone or the daemon too slow, and a
// launcher that starts it afresh finds out. The daemon's other threads go on until the very end, so
// nothing that they use is destroyed on the way out; all that must not be lost is the warning.
[[noreturn]] void end_process() {
    utils::logger_list()[utils::app]->flush();
    std::_Exit(EX_NOPERM);
}

// The name of the process that the event is for. A release needs none: it runs what its press has
// held, so the question, which goes to another process, is saved.
std::optional<std::string> process_name_for(CGEventRef event, button_state_e state) {
    const auto pid = state == button_state_e::released ? std::nullopt : pid_from_event(event);
    return pid ? process_name_from_pid(*pid) : std::nullopt;
}

}  // namespace

void mac_impl_t::setup_event_tap() {
    // Drags are in the mask but always pass: a button that is dragged is decided by its press.
    auto tap = create_tap(mask_of(kCGEventScrollWheel, kCGEventOtherMouseDown, kCGEventOtherMouseUp,
                                  kCGEventOtherMouseDragged),
                          &event_tap_cb, this);
    if (!tap.port) {
        // Unlike the keyboard tap's, this failure is no reason to give up: that one follows at
        // once and ends the set-up when the permission is missing.
        QLX_LOG_ERROR(tap_failure);
        return;
    }
    mouse_tap = std::move(tap.port);
    mouse_tap_source = std::move(tap.source);
}

void mac_impl_t::setup_event_tap_keyboard() {
    auto tap = create_tap(mask_of(kCGEventKeyDown, kCGEventKeyUp), &event_tap_cb_keyboard, this);
    if (!tap.port) {
        throw std::runtime_error(tap_failure);
    }
    keyboard_tap = std::move(tap.port);
    keyboard_tap_source = std::move(tap.source);
}

CGEventRef mac_impl_t::event_tap_cb(CGEventTapProxy /*proxy*/, CGEventType type, CGEventRef event,
                                    void* user_info) noexcept {
    if (user_info == nullptr) {
        return event;
    }
    if (is_disabled_notification(type)) {
        QLX_LOG_WARNING("Event tap disabled, exiting…");
        end_process();
    }
    try {
        return static_cast<mac_impl_t*>(user_info)->_take_mouse_event(type, event) ? nullptr
                                                                                   : event;
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Event tap callback threw: {}", error.what());
        return event;
    }
}

CGEventRef mac_impl_t::event_tap_cb_keyboard(CGEventTapProxy /*proxy*/, CGEventType type,
                                             CGEventRef event, void* user_info) noexcept {
    if (user_info == nullptr) {
        return event;
    }
    if (is_disabled_notification(type)) {
        QLX_LOG_WARNING("Event tap keyboard disabled, exiting…");
        end_process();
    }
    try {
        return static_cast<mac_impl_t*>(user_info)->_take_key_event(type, event) ? nullptr : event;
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Event tap callback threw: {}", error.what());
        return event;
    }
}

bool mac_impl_t::_take_mouse_event(CGEventType type, CGEventRef event) {
    if (owner == nullptr ||
        hook_manager_t::current_active_mouse.load() == qlx_device_e::not_a_device) {
        return false;
    }
    input_value_e input{};
    button_state_e state{};
    if (type == kCGEventScrollWheel) {
        if (!map_scroll_mouse_only(event, input, state)) {
            return false;
        }
    } else if (type == kCGEventOtherMouseDown || type == kCGEventOtherMouseUp) {
        const auto button =
            input_of_button(CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber));
        if (!button) {
            return false;
        }
        input = *button;
        state = type == kCGEventOtherMouseDown ? button_state_e::pressed : button_state_e::released;
    } else {
        return false;
    }
    return _ask_owner(input, state, event);
}

bool mac_impl_t::_take_key_event(CGEventType type, CGEventRef event) {
    // The arming is for one event, whatever becomes of it.
    if (!keyboard_pending.exchange(false)) {
        return false;
    }
    // Key strokes of the executer; one that comes now uses the arming up all the same.
    static const pid_t own_pid = getpid();
    if (CGEventGetIntegerValueField(event, kCGEventSourceUnixProcessID) == own_pid) {
        return false;
    }
    const qlx_device_e model = hook_manager_t::current_active_mouse.load();
    if (owner == nullptr || model == qlx_device_e::not_a_device) {
        return false;
    }
    const auto input =
        input_of_key(model, CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
    if (!input) {
        return false;
    }
    const auto state = type == kCGEventKeyDown ? button_state_e::pressed : button_state_e::released;
    return _ask_owner(*input, state, event);
}

bool mac_impl_t::_ask_owner(input_value_e input, button_state_e state, CGEventRef event) {
    try {
        return owner->process_event(input, state, process_name_for(event, state));
    } catch (...) {
        // A press that passes must not find its release swallowed for what an earlier press held.
        if (state == button_state_e::pressed) {
            owner->store_action(hook_manager_t::current_active_mouse.load(), input,
                                default_action_t{});
        }
        throw;
    }
}

std::optional<pid_t> pid_from_event(CGEventRef event) {
    const auto target =
        static_cast<pid_t>(CGEventGetIntegerValueField(event, kCGEventTargetUnixProcessID));
    if (target >= 1) {
        return target;
    }
    const auto element = element_at_in_callback(CGEventGetLocation(event));
    if (!element) {
        return std::nullopt;
    }
    // On failure the process stays 0.
    pid_t pid = 0;
    AXUIElementGetPid(element.get(), &pid);
    return pid >= 1 ? std::optional(pid) : std::nullopt;
}

std::optional<std::string> process_name_from_pid(pid_t pid) {
    std::array<char, 1024> buffer{};
    const int length = proc_name(pid, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    if (length < 1 || buffer.front() == '\0') {
        return std::nullopt;
    }
    const std::string_view whole(buffer.data(), buffer.size());
    return cut_process_name(whole.substr(0, whole.find('\0')));
}

bool map_scroll_mouse_only(CGEventRef event, input_value_e& input, button_state_e& state) {
    if (event == nullptr) {
        return false;
    }
    const auto field = [event](CGEventField name) {
        return CGEventGetIntegerValueField(event, name);
    };
    scroll_t scroll;
    scroll.point_axis_1 = field(kCGScrollWheelEventPointDeltaAxis1);
    scroll.point_axis_2 = field(kCGScrollWheelEventPointDeltaAxis2);
    scroll.line_axis_1 = field(kCGScrollWheelEventDeltaAxis1);
    scroll.line_axis_2 = field(kCGScrollWheelEventDeltaAxis2);
    scroll.is_continuous = field(kCGScrollWheelEventIsContinuous);
    scroll.phase = field(kCGScrollWheelEventScrollPhase);
    scroll.momentum_phase = field(kCGScrollWheelEventMomentumPhase);
    const auto step = input_of_scroll(scroll);
    if (!step) {
        return false;
    }
    input = *step;
    state = button_state_e::instant;
    return true;
}
