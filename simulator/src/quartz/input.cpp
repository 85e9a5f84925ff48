#include "control/input.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "core/failure.h"
#include "hid/hid_manager.h"
#include "quartz/event_server.h"
#include "quartz/session.h"

namespace simulator {
namespace {

// What one step of a mouse's wheel is in points.
constexpr std::int64_t points_per_line = 10;

// How many buttons a pointer has; Quartz counts them from 0, HID from 1.
constexpr std::uint32_t button_count = 32;

using interface_t = std::shared_ptr<hid_interface_t>;

struct plugged_in_t {
    interface_t pointer;   // null: it has none
    interface_t keyboard;  // null: it has none

    std::set<interface_t> interfaces() const {
        std::set<interface_t> all{pointer, keyboard};
        all.erase(nullptr);
        return all;
    }
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

interface_t pointer_of(device_id_t id, std::string_view function) {
    interface_t pointer = device_of(id, function).pointer;
    if (pointer == nullptr) {
        misuse(function, "the device is no pointer");
    }
    return pointer;
}

using acts_t = std::vector<std::function<void()>>;

// What the thread's burst() consists of; null outside of one.
thread_local acts_t* gathered = nullptr;

void carry_out(std::function<void()> action) {
    if (gathered != nullptr) {
        gathered->push_back(std::move(action));
    } else {
        event_server_t::instance().carry_out(std::move(action));
    }
}

// What comes of a device that another program has seized reaches nobody else.
void carry_out(const interface_t& of, std::function<void()> action) {
    carry_out([of, action = std::move(action)] {
        if (!of->seized) {
            action();
        }
    });
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

const usages_t& relative_controls() {
    static const usages_t all{{kHIDPage_GenericDesktop, kHIDUsage_GD_X},
                              {kHIDPage_GenericDesktop, kHIDUsage_GD_Y},
                              {kHIDPage_GenericDesktop, kHIDUsage_GD_Wheel},
                              {kHIDPage_Consumer, kHIDUsage_Csmr_ACPan}};
    return all;
}

// What the device reports of a motion, and then the event of it.
void move_pointer(const hid_interface_t& pointer, CGPoint to, const event_values_t& event) {
    send_report(pointer, relative_controls());
    session_t::instance().set_pointer(to);
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
    const interface_t pointer = pointer_of(device, function);
    if (button >= button_count) {
        misuse(function, "no pointer has that many buttons");
    }
    carry_out(pointer, [pointer, button, half] {
        usages_t report = relative_controls();
        report.push_back({kHIDPage_Button, button + 1});
        send_report(*pointer, report);
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
    carry_out(known.keyboard, [known, key_code, what] {
        if (what != key_e::repeat) {
            send_report(*known.keyboard, {{kHIDPage_KeyboardOrKeypad, any_key}});
        }
        event_values_t event;
        event.type = what == key_e::up ? kCGEventKeyUp : kCGEventKeyDown;
        if (const CGEventFlags modifier = modifier_of(key_code)) {
            event.type = kCGEventFlagsChanged;
            held_modifiers() =
                what == key_e::up ? held_modifiers() & ~modifier : held_modifiers() | modifier;
        }
        event.key_code = key_code;
        send_from_hand(event);
    });
}

}  // namespace

device_id_t connect(const device_description_t& description) {
    const auto make = [&](const usages_t& pairs) {
        return pairs.empty() ? nullptr : std::make_shared<hid_interface_t>(description, pairs);
    };
    plugged_in_t device;
    if (description.combined) {
        usages_t pairs = description.pointer;
        pairs.insert(pairs.end(), description.keyboard.begin(), description.keyboard.end());
        device.pointer = device.keyboard = make(pairs);
    } else {
        device.pointer = make(description.pointer);
        device.keyboard = make(description.keyboard);
    }
    for (const interface_t& interface : device.interfaces()) {
        plug_in(interface);
    }
    devices_t& all = devices();
    const std::lock_guard lock(all.mutex);
    all.plugged_in[++all.last] = device;
    return all.last;
}

void burst(const std::function<void()>& acts) {
    const auto all = std::make_shared<acts_t>();
    gathered = all.get();
    acts();
    gathered = nullptr;
    carry_out([all] {
        send_together([&] {
            for (const auto& act : *all) {
                act();
            }
        });
    });
}

void disconnect(device_id_t device) {
    const plugged_in_t known = device_of(device, __func__);
    {
        devices_t& all = devices();
        const std::lock_guard lock(all.mutex);
        all.plugged_in.erase(device);
    }
    carry_out([known] {
        for (const interface_t& interface : known.interfaces()) {
            unplug(interface);
        }
    });
}

void seize(device_id_t device) {
    for (const interface_t& interface : device_of(device, __func__).interfaces()) {
        interface->seized = true;
    }
}

void let_go(device_id_t device) {
    for (const interface_t& interface : device_of(device, __func__).interfaces()) {
        interface->seized = false;
    }
}

void move(device_id_t device, double dx, double dy) {
    const interface_t pointer = pointer_of(device, __func__);
    carry_out(pointer,
              [pointer, dx, dy] { move_pointer(*pointer, from_pointer(dx, dy), moved()); });
}

void move_to(device_id_t device, CGPoint place) {
    const interface_t pointer = pointer_of(device, __func__);
    carry_out(pointer, [pointer, place] { move_pointer(*pointer, place, moved()); });
}

void press(device_id_t device, std::uint32_t button) {
    click(device, button, half_e::down, __func__);
}

void release(device_id_t device, std::uint32_t button) {
    click(device, button, half_e::up, __func__);
}

void drag(device_id_t device, std::uint32_t button, double dx, double dy) {
    const interface_t pointer = pointer_of(device, __func__);
    carry_out(pointer, [pointer, button, dx, dy] {
        event_values_t event;
        event.type = types_of_button(button).dragged;
        event.button = button;
        move_pointer(*pointer, from_pointer(dx, dy), event);
    });
}

void scroll(device_id_t device, std::int32_t vertical, std::int32_t horizontal) {
    const interface_t pointer = pointer_of(device, __func__);
    carry_out(pointer, [pointer, vertical, horizontal] {
        send_report(*pointer, relative_controls());
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
    carry_out(pointer_of(device, __func__), [fields] {
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
