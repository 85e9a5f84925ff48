// The HID half of the capture: which mouse is in the user's hand.

#include <IOKit/hid/IOHIDKeys.h>
#include <IOKit/hid/IOHIDUsageTables.h>

#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "common/log/log.h"
#include "macos/device_mappings.h"
#include "macos/hid_matching.h"
#include "macos/hook_manager.h"
#include "macos/hook_manager_decisions.h"
#include "macos/hook_manager_impl.h"

namespace {

cpf_t<CFMutableDictionaryRef> new_dictionary() {
    return created(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                             &kCFTypeDictionaryValueCallBacks));
}

cpf_t<CFMutableArrayRef> new_array() {
    return created(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
}

void set_number(const cpf_t<CFMutableDictionaryRef>& dictionary, CFStringRef key,
                std::uint32_t value) {
    CFDictionarySetValue(dictionary.get(), key,
                         created_number(static_cast<std::int32_t>(value)).get());
}

cpf_t<CFMutableDictionaryRef> product_matching(std::uint32_t vendor_id, std::uint32_t product_id,
                                               bool with_keyboard_page) {
    auto matching = new_dictionary();
    set_number(matching, CFSTR(kIOHIDVendorIDKey), vendor_id);
    set_number(matching, CFSTR(kIOHIDProductIDKey), product_id);
    if (with_keyboard_page) {
        set_number(matching, CFSTR(kIOHIDDeviceUsagePageKey), kHIDPage_KeyboardOrKeypad);
    }
    return matching;
}

// All mice, for their motion. Of the supported models only the keyboard interfaces besides: their
// own motion comes through the entry for all mice, so every call asks for the keyboard page.
cpf_t<CFMutableArrayRef> device_matching() {
    auto matching = new_array();
    CFArrayAppendValue(matching.get(),
                       usage_matching(kHIDPage_GenericDesktop, kHIDUsage_GD_Mouse).get());
    for (const device_mapping_t& mapping : device_mappings) {
        CFArrayAppendValue(matching.get(),
                           product_matching(mapping.vendor_id, mapping.product_id, true).get());
    }
    return matching;
}

cpf_t<CFMutableDictionaryRef> value_matching_of(std::uint32_t usage_page,
                                                std::optional<std::uint32_t> usage) {
    auto matching = new_dictionary();
    set_number(matching, CFSTR(kIOHIDElementUsagePageKey), usage_page);
    if (usage) {
        set_number(matching, CFSTR(kIOHIDElementUsageKey), *usage);
    }
    return matching;
}

// Pointer motion and keys; buttons and wheels are the taps' business.
cpf_t<CFMutableArrayRef> value_matching() {
    auto matching = new_array();
    CFArrayAppendValue(matching.get(),
                       value_matching_of(kHIDPage_GenericDesktop, kHIDUsage_GD_X).get());
    CFArrayAppendValue(matching.get(),
                       value_matching_of(kHIDPage_GenericDesktop, kHIDUsage_GD_Y).get());
    CFArrayAppendValue(matching.get(),
                       value_matching_of(kHIDPage_KeyboardOrKeypad, std::nullopt).get());
    return matching;
}

// The device's property as a number, 0 when it has none or it is something else; a number that does
// not fit is no product's.
std::uint32_t number_property(IOHIDDeviceRef device, CFStringRef key) {
    const CFTypeRef property = IOHIDDeviceGetProperty(device, key);  // the device keeps it
    if (property == nullptr || CFGetTypeID(property) != CFNumberGetTypeID()) {
        return 0;
    }
    std::int32_t value = 0;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(property), kCFNumberSInt32Type, &value)) {
        return 0;
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace

void mac_impl_t::setup_hid_manager() {
    auto manager = cpf_t<IOHIDManagerRef>::adopt(
        IOHIDManagerCreate(kCFAllocatorDefault, kIOHIDOptionsTypeNone));
    if (!manager) {
        QLX_LOG_ERROR("IOHIDManagerCreate failed");
        return;
    }
    IOHIDManagerSetDeviceMatchingMultiple(manager.get(), device_matching().get());
    IOHIDManagerSetInputValueMatchingMultiple(manager.get(), value_matching().get());
    // Kept from here on, where the system gets to know this object: what fails before it goes with
    // its owner.
    hid_manager = std::move(manager);
    IOHIDManagerRegisterInputValueCallback(hid_manager.get(), &hid_input_cb, this);
    IOHIDManagerRegisterDeviceRemovalCallback(hid_manager.get(), &hid_removal_cb, this);
    IOHIDManagerScheduleWithRunLoop(hid_manager.get(), CFRunLoopGetCurrent(),
                                    kCFRunLoopDefaultMode);
    const IOReturn result = IOHIDManagerOpen(hid_manager.get(), kIOHIDOptionsTypeNone);
    if (result != kIOReturnSuccess) {
        QLX_LOG_ERROR("IOHIDManagerOpen failed: {}, Check the input system permissions", result);
        throw std::runtime_error("IOHIDManagerOpen failed");
    }
}

void mac_impl_t::hid_input_cb(void* context, IOReturn result, void* /*sender*/,
                              IOHIDValueRef value) noexcept {
    if (value == nullptr || context == nullptr || result != kIOReturnSuccess) {
        return;
    }
    try {
        auto& self = *static_cast<mac_impl_t*>(context);
        const IOHIDElementRef element = IOHIDValueGetElement(value);
        const IOHIDDeviceRef device = element != nullptr ? IOHIDElementGetDevice(element) : nullptr;
        if (device == nullptr || self.owner == nullptr) {
            return;
        }
        const device_info_t& info = self._info_of(device);
        if (IOHIDElementGetUsagePage(element) == kHIDPage_KeyboardOrKeypad) {
            if (!sends_keys_for_buttons(info.device)) {
                // Keys of other devices tell nothing about the mouse in the hand; typing must not
                // switch remapping off.
                return;
            }
            self.keyboard_pending.store(true);
        }
        // A mouse that is not supported becomes the active one too: while it is in use, its events
        // are its own, and nothing is remapped.
        if (hook_manager_t::current_active_mouse.load() != info.device) {
            hook_manager_t::current_active_mouse.store(info.device);
            QLX_LOG_INFO("Active device changed to {} (vid=0x{:04X}, pid=0x{:04X})",
                         static_cast<std::int32_t>(info.device), info.vendor_id, info.product_id);
        }
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("HID input callback threw: {}", error.what());
    }
}

// The active model stays as it is: the next value of any device corrects it.
void mac_impl_t::hid_removal_cb(void* context, IOReturn /*result*/, void* /*sender*/,
                                IOHIDDeviceRef device) noexcept {
    if (context != nullptr) {
        static_cast<mac_impl_t*>(context)->devices.erase(device);
    }
}

const mac_impl_t::device_info_t& mac_impl_t::_info_of(IOHIDDeviceRef device) {
    if (const auto known = devices.find(device); known != devices.end()) {
        return known->second;
    }
    device_info_t info;
    info.vendor_id = number_property(device, CFSTR(kIOHIDVendorIDKey));
    info.product_id = number_property(device, CFSTR(kIOHIDProductIDKey));
    info.device = model_of(info.vendor_id, info.product_id);
    return devices.emplace(device, info).first->second;
}
