#include "macos/hook_manager_impl.h"

namespace {

void remove_tap(cpf_t<CFMachPortRef>& tap, cpf_t<CFRunLoopSourceRef>& source) {
    if (tap) {
        CGEventTapEnable(tap.get(), false);
    }
    if (source) {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source.get(), kCFRunLoopCommonModes);
    }
    if (tap) {
        CFMachPortInvalidate(tap.get());
    }
    // One pass of the run loop without waiting. What still waits for this tap goes with its port;
    // what may call back here is one other source that has something, be it the other tap, the HID
    // manager or the quit timer. All that they use still stands.
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
    source.reset();
    tap.reset();
}

}  // namespace

mac_impl_t::mac_impl_t(hook_manager_t& hook_manager) : owner(&hook_manager) {
    devices.max_load_factor(1.0F);
}

mac_impl_t::~mac_impl_t() {
    if (owner == nullptr) {
        return;
    }
    // The taps go before the HID manager, and the device map last of all: the run loop, which runs
    // while a tap goes, may still bring values of devices.
    remove_tap(mouse_tap, mouse_tap_source);
    remove_tap(keyboard_tap, keyboard_tap_source);
    if (hid_manager) {
        IOHIDManagerUnscheduleFromRunLoop(hid_manager.get(), CFRunLoopGetCurrent(),
                                          kCFRunLoopDefaultMode);
        IOHIDManagerClose(hid_manager.get(), kIOHIDOptionsTypeNone);
        hid_manager.reset();
    }
}

void mac_impl_t::abandon() {
    owner = nullptr;
    devices.clear();
    if (mouse_tap) {
        CGEventTapEnable(mouse_tap.get(), false);
    }
}

bool mac_impl_t::can_be_called_back() const {
    return mouse_tap || keyboard_tap || hid_manager;
}
