#include "control/input.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <functional>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "core/failure.h"
#include "hid/hid_manager.h"
#include "quartz/event_server.h"
#include "quartz/session.h"

namespace simulator {
namespace {

// What one step of a mouse's wheel is in points.
constexpr std::int64_t points_per_line = 10;

struct plugged_in_t {
    hid_device_t* pointer = nullptr;   // null: it has none
    hid_device_t* keyboard = nullptr;  // null: it has none
    std::uint32_t keyboard_type = 0;
};

struct devices_t {
    std::mutex mutex;
    std::map<device_id_t, plugged_in_t> plugged_in;
    device_id_t last = 0;
};

devices_t& devices() {
    static devices_t& all = *new devices_t;
    return all;
}

plugged_in_t device_of(device_id_t id, std::string_view function) {
    devices_t& all = devices();
    const std::lock_guard lock(all.mutex);
    const auto found = all.plugged_in.find(id);
    if (found == all.plugged_in.end()) {
        misuse(function, "no such device is connected");
    }
    return found->second;
}

hid_device_t& pointer_of(device_id_t id, std::string_view function) {
    hid_device_t* const pointer = device_of(id, function).pointer;
    if (pointer == nullptr) {
        misuse(function, "the device is no pointer");
    }
    return *pointer;
}

void carry_out(std::function<void()> action) {
    event_server_t::instance().carry_out(std::move(action));
}

// What follows up to the control interface runs on the desktop's thread.

// The modifier keys that are down.
CGEventFlags& held_modifiers() {
    static CGEventFlags held = 0;
    return held;
}

// 0 for a key that is no modifier. The key codes are the platform's for an ANSI keyboard.
CGEventFlags modifier_of(std::uint16_t key_code) {
    switch (key_code) {
        case 0x38:
        case 0x3C:
            return kCGEventFlagMaskShift;
        case 0x3B:
        case 0x3E:
            return kCGEventFlagMaskControl;
        case 0x3A:
        case 0x3D:
            return kCGEventFlagMaskAlternate;
        case 0x36:
        case 0x37:
            return kCGEventFlagMaskCommand;
        default:
            return 0;
    }
}

void send_from_hand(event_values_t event) {
    event.location = session_t::instance().pointer();
    event.flags = held_modifiers();
    send(event);
}

// The motion that the device reports, and then the event of it.
void move_pointer(const hid_device_t& pointer, CGPoint to, const event_values_t& event) {
    session_t& session = session_t::instance();
    const CGPoint from = session.pointer();
    if (to.x != from.x) {
        send_value(pointer.element({kHIDPage_GenericDesktop, kHIDUsage_GD_X}));
    }
    if (to.y != from.y) {
        send_value(pointer.element({kHIDPage_GenericDesktop, kHIDUsage_GD_Y}));
    }
    session.set_pointer(to);
    send_from_hand(event);
}

CGPoint from_pointer(double dx, double dy) {
    const CGPoint from = session_t::instance().pointer();
    return {from.x + dx, from.y + dy};
}

event_values_t moved() {
    event_values_t event;
    event.type = kCGEventMouseMoved;
    return event;
}

enum class half_e { down, up };

void click(device_id_t device, std::uint32_t button, half_e half, std::string_view function) {
    const hid_device_t& pointer = pointer_of(device, function);
    if (button >= button_count) {
        misuse(function, "no pointer has that many buttons");
    }
    carry_out([&pointer, button, half] {
        send_value(pointer.element({kHIDPage_Button, button + 1}));
        const button_types_t types = types_of_button(button);
        event_values_t event;
        event.type = half == half_e::down ? types.down : types.up;
        event.button = button;
        event.click_state = 1;
        send_from_hand(event);
    });
}

enum class key_e { down, up, repeat };

void type(device_id_t device, std::uint16_t key_code, key_e what, std::string_view function) {
    const plugged_in_t known = device_of(device, function);
    if (known.keyboard == nullptr) {
        misuse(function, "the device is no keyboard");
    }
    carry_out([known, key_code, what] {
        if (what != key_e::repeat) {
            send_value(known.keyboard->element({kHIDPage_KeyboardOrKeypad, any_key}));
        }
        event_values_t event;
        event.type = what == key_e::up ? kCGEventKeyUp : kCGEventKeyDown;
        if (const CGEventFlags modifier = modifier_of(key_code)) {
            event.type = kCGEventFlagsChanged;
            held_modifiers() =
                what == key_e::up ? held_modifiers() & ~modifier : held_modifiers() | modifier;
        }
        event.key_code = key_code;
        event.keyboard_type = known.keyboard_type;
        send_from_hand(event);
    });
}

}  // namespace

device_id_t connect(const device_description_t& description) {
    plugged_in_t device;
    if (description.has_pointer) {
        device.pointer = &hid_device_t::make_pointer(description);
    }
    if (description.has_keyboard) {
        device.keyboard = &hid_device_t::make_keyboard(description);
    }
    device.keyboard_type = description.keyboard_type;
    devices_t& all = devices();
    const std::lock_guard lock(all.mutex);
    all.plugged_in[++all.last] = device;
    return all.last;
}

void disconnect(device_id_t device) {
    const plugged_in_t known = device_of(device, __func__);
    {
        devices_t& all = devices();
        const std::lock_guard lock(all.mutex);
        all.plugged_in.erase(device);
    }
    carry_out([known] {
        for (hid_device_t* const gone : {known.pointer, known.keyboard}) {
            if (gone != nullptr) {
                send_removal(*gone);
            }
        }
    });
}

void move(device_id_t device, double dx, double dy) {
    const hid_device_t& pointer = pointer_of(device, __func__);
    carry_out([&pointer, dx, dy] { move_pointer(pointer, from_pointer(dx, dy), moved()); });
}

void move_to(device_id_t device, CGPoint place) {
    const hid_device_t& pointer = pointer_of(device, __func__);
    carry_out([&pointer, place] {
        const CGPoint from = session_t::instance().pointer();
        if (from.x == place.x && from.y == place.y) {
            send_value(pointer.element({kHIDPage_GenericDesktop, kHIDUsage_GD_X}));
        }
        move_pointer(pointer, place, moved());
    });
}

void press(device_id_t device, std::uint32_t button) {
    click(device, button, half_e::down, __func__);
}

void release(device_id_t device, std::uint32_t button) {
    click(device, button, half_e::up, __func__);
}

void drag(device_id_t device, std::uint32_t button, double dx, double dy) {
    const hid_device_t& pointer = pointer_of(device, __func__);
    carry_out([&pointer, button, dx, dy] {
        event_values_t event;
        event.type = types_of_button(button).dragged;
        event.button = button;
        move_pointer(pointer, from_pointer(dx, dy), event);
    });
}

void scroll(device_id_t device, std::int32_t vertical, std::int32_t horizontal) {
    const hid_device_t& pointer = pointer_of(device, __func__);
    carry_out([&pointer, vertical, horizontal] {
        if (vertical != 0) {
            send_value(pointer.element({kHIDPage_GenericDesktop, kHIDUsage_GD_Wheel}));
        }
        if (horizontal != 0) {
            send_value(pointer.element({kHIDPage_Consumer, kHIDUsage_Csmr_ACPan}));
        }
        event_values_t event;
        event.type = kCGEventScrollWheel;
        event.scroll.line_axis_1 = vertical;
        event.scroll.line_axis_2 = horizontal;
        event.scroll.point_axis_1 = vertical * points_per_line;
        event.scroll.point_axis_2 = horizontal * points_per_line;
        send_from_hand(event);
    });
}

void scroll(device_id_t device, const scroll_fields_t& fields) {
    pointer_of(device, __func__);
    carry_out([fields] {
        event_values_t event;
        event.type = kCGEventScrollWheel;
        event.scroll = fields;
        send_from_hand(event);
    });
}

void press_key(device_id_t device, std::uint16_t key_code) {
    type(device, key_code, key_e::down, __func__);
}

void release_key(device_id_t device, std::uint16_t key_code) {
    type(device, key_code, key_e::up, __func__);
}

void repeat_key(device_id_t device, std::uint16_t key_code) {
    type(device, key_code, key_e::repeat, __func__);
}

}  // namespace simulator
