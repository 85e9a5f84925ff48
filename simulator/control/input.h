#pragma once

#include <CoreGraphics/CGEvent.h>

#include <sys/types.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// What the hand does, and what the desktop saw. Any thread; everything returns at once, the
// desktop's own thread carries it out in order.
namespace simulator {

using device_id_t = std::uint32_t;

// A usage of the HID tables.
struct usage_t {
    std::uint32_t page = 0;
    std::uint32_t id = 0;
};
using usages_t = std::vector<usage_t>;

// The usage pairs of interfaces, one for each application or physical collection of their report
// descriptors.
inline const usages_t mouse_pairs{{1, 2}, {1, 1}};
inline const usages_t keyboard_pairs{{1, 6}};          // as keyboards have them
inline const usages_t key_page_pairs{{1, 6}, {7, 6}};  // with a collection of the key page, too

// A device with up to two HID interfaces, as mice with extra keys have them: a pointer (X, Y, 32
// buttons and wheels) and a keyboard, each with the usage pairs given; none: it is not there.
// Using a device that is not connected, or lacks what the call needs, ends the program.
struct device_description_t {
    std::string name;
    std::optional<std::uint32_t> vendor_id{};   // none: the device has no such property
    std::optional<std::uint32_t> product_id{};  // none: the device has no such property
    bool ids_are_text = false;                  // the properties are strings instead of numbers
    usages_t pointer = mouse_pairs;
    usages_t keyboard{};
    bool combined = false;  // both are one interface, with the pairs of both
};

device_id_t connect(const device_description_t& description);
void disconnect(device_id_t device);

// Another program takes the device for itself, which leaves nothing of it for anybody else, or
// lets it go again. Takes effect at once.
void seize(device_id_t device);
void let_go(device_id_t device);

// What a pointer does comes with a HID value for each axis and wheel, turned or not: they are
// relative and stand in every report.

// Moves the pointer by points, with a mouse-moved event.
void move(device_id_t device, double dx, double dy);
// Moves the pointer to a place on the desktop; one report, even when it is there already.
void move_to(device_id_t device, CGPoint place);

// Buttons as Quartz counts them: 0 left, 1 right, 2 middle, 3 and 4 the side buttons.
void press(device_id_t device, std::uint32_t button);
void release(device_id_t device, std::uint32_t button);
void drag(device_id_t device, std::uint32_t button, double dx, double dy);

// Wheel steps of a mouse; positive is forward (vertical) and right (horizontal).
void scroll(device_id_t device, std::int32_t vertical, std::int32_t horizontal);
// A scroll event with every field that tells a trackpad from a mouse; without HID values, for which
// a trackpad has other elements.
struct scroll_fields_t {
    std::int64_t line_axis_1 = 0, line_axis_2 = 0;
    std::int64_t point_axis_1 = 0, point_axis_2 = 0;
    bool continuous = false;
    std::int64_t phase = 0;
    std::int64_t momentum_phase = 0;
};
void scroll(device_id_t device, const scroll_fields_t& fields);

// A key of the device's keyboard interface by its macOS virtual key code: a HID value on the
// Keyboard/Keypad page, then a key event, or a flags-changed event for a modifier key (Caps Lock is
// an ordinary key here). `repeat_key` is the system's own repetition of a held key: a key event
// without a HID value.
void press_key(device_id_t device, std::uint16_t key_code);
void release_key(device_id_t device, std::uint16_t key_code);
void repeat_key(device_id_t device, std::uint16_t key_code);

// The hand is faster than the program: what `acts` lets it do, on the calling thread, comes without
// waiting for answers. The HID values of all of it come first, then its events, which wait before
// the taps together.
void burst(const std::function<void()>& acts);

enum class event_origin_e { hardware, posted };
enum class event_outcome_e { under_way, delivered, swallowed };

struct event_record_t {
    std::uint64_t number = 0;  // in the order in which the desktop got them, from 1
    event_origin_e origin = event_origin_e::hardware;
    event_outcome_e outcome = event_outcome_e::under_way;
    pid_t delivered_to = 0;  // the process of the application; 0: nobody was there
    CGEventType type = kCGEventNull;
    CGPoint location{};
    CGEventFlags flags = 0;
    std::int64_t button = 0;
    std::int64_t click_state = 0;
    std::int64_t key_code = 0;
    scroll_fields_t scroll;
    std::uint32_t scroll_wheels = 0;  // of a posted scroll event: the wheel count given
};

// All events since they were last forgotten, hardware and posted ones, in order. Mouse-moved events
// are left out.
std::vector<event_record_t> events();
// Waits until events() holds at least `count` that programs posted. False when it takes longer.
bool wait_for_posted(std::size_t count,
                     std::chrono::milliseconds at_most = std::chrono::seconds(10));
void forget_events();

// Event taps that exist (created, and neither invalidated nor freed), and those enabled.
std::size_t taps_alive();
std::size_t taps_enabled();

// How long a tap's callback may take before the system goes on without it and disables the tap.
// One second at the start, which is the simulated desktop's choice.
void set_tap_patience(std::chrono::milliseconds patience);
// Holds the program's thread at the end of the next tap callback until it is let go, as a slow
// program would itself; at most for ten times the patience.
void hold_next_tap_callback();
void let_tap_callbacks_go();

}  // namespace simulator
