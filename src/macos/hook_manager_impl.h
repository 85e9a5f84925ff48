#pragma once

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDManager.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "common/input_value.h"
#include "macos/cpf.h"

class hook_manager_t;

// The capture: the HID manager that tells which mouse is in use, and the two event taps. The system
// calls it back through its address from the run loop of the thread that set it up, so it does not
// move, and that thread alone uses and destroys it.
struct mac_impl_t {
    struct device_info_t {
        std::uint32_t vendor_id = 0;   // 0: the device does not say
        std::uint32_t product_id = 0;  // 0: the device does not say
        qlx_device_e device = qlx_device_e::not_a_device;
    };

    explicit mac_impl_t(hook_manager_t& hook_manager);
    // Disables and removes the taps and closes the HID manager. For each tap, there or not, the run
    // loop may serve one thing that waits. Does nothing for an abandoned capture.
    ~mac_impl_t();
    mac_impl_t(const mac_impl_t&) = delete;
    mac_impl_t& operator=(const mac_impl_t&) = delete;

    // Each is called once, in this order. The first throws std::runtime_error when the HID manager
    // cannot be opened (or std::bad_alloc), the last when its tap cannot be created; otherwise a
    // failure is logged and the daemon runs without.
    void setup_hid_manager();
    void setup_event_tap();
    void setup_event_tap_keyboard();

    // Cuts the capture off from its owner and disables the mouse tap, the only one there can be
    // when a set-up fails: nobody will answer it any more, and every event would wait for that.
    void abandon();
    // Whether the system still holds this object's address.
    [[nodiscard]] bool can_be_called_back() const;

    // The system's callbacks; the context is the mac_impl_t. None throws.
    static void hid_input_cb(void* context, IOReturn result, void* sender,
                             IOHIDValueRef value) noexcept;
    static void hid_removal_cb(void* context, IOReturn result, void* sender,
                               IOHIDDeviceRef device) noexcept;
    static CGEventRef event_tap_cb(CGEventTapProxy proxy, CGEventType type, CGEventRef event,
                                   void* user_info) noexcept;
    static CGEventRef event_tap_cb_keyboard(CGEventTapProxy proxy, CGEventType type,
                                            CGEventRef event, void* user_info) noexcept;

    hook_manager_t* owner;  // null once abandoned
    // Each is empty when its set-up failed or has not run; the mouse tap may be for the whole run.
    cpf_t<CFMachPortRef> mouse_tap;
    cpf_t<CFMachPortRef> keyboard_tap;
    cpf_t<CFRunLoopSourceRef> mouse_tap_source;
    cpf_t<CFRunLoopSourceRef> keyboard_tap_source;
    cpf_t<IOHIDManagerRef> hid_manager;
    // Set by a key value of a supported model, used up by the next key event.
    std::atomic<bool> keyboard_pending{false};
    // What is known of each device that has sent a value, by its identity. The devices belong to
    // the HID manager; one that is removed leaves the map.
    std::unordered_map<IOHIDDeviceRef, device_info_t> devices;

  private:
    const device_info_t& _info_of(IOHIDDeviceRef device);
    // Whether the event is to be swallowed.
    bool _take_mouse_event(CGEventType type, CGEventRef event);
    bool _take_key_event(CGEventType type, CGEventRef event);
    // The owner's answer for an input. One that fails throws, and then its event passes.
    bool _ask_owner(input_value_e input, button_state_e state, CGEventRef event);
};

// The process that the event goes to: the one named in the event, else the one that owns the
// interface element under the event's location; none when neither is known, or when the application
// there does not answer at once. Only the thread of the tap callbacks.
std::optional<pid_t> pid_from_event(CGEventRef event);

// The process's short name as the kernel keeps it, up to ".app"; none when there is no name.
std::optional<std::string> process_name_from_pid(pid_t pid);

// Whether the scroll event (may be null) is one step of a mouse's horizontal wheel; if so, sets the
// input and the state `instant`.
bool map_scroll_mouse_only(CGEventRef event, input_value_e& input, button_state_e& state);
