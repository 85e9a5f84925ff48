#include "hid/hid_device.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <algorithm>

#include "core/failure.h"
#include "core_foundation/values.h"

namespace simulator {

hid_interface_t::hid_interface_t(const device_description_t& description, usages_t usage_pairs)
    : _usage_pairs(std::move(usage_pairs)) {
    const auto set = [&](const char* name, std::optional<std::uint32_t> value) {
        if (!value) {
            return;
        }
        // Programs borrow a property for as long as they like.
        _properties[name] =
            description.ids_are_text
                ? publish_constant(std::make_unique<string_t>(std::to_string(*value)))
                : publish_constant(std::make_unique<number_t>(*value));
    };
    set(kIOHIDVendorIDKey, description.vendor_id);
    set(kIOHIDProductIDKey, description.product_id);
}

bool hid_interface_t::has_usage(std::optional<std::int64_t> page,
                                std::optional<std::int64_t> id) const {
    return !page || std::any_of(_usage_pairs.begin(), _usage_pairs.end(), [&](const usage_t& pair) {
        return *page == pair.page && id.value_or(pair.id) == pair.id;
    });
}

bool hid_interface_t::guarded() const {
    return has_usage(kHIDPage_GenericDesktop, kHIDUsage_GD_Keyboard) ||
           has_usage(kHIDPage_GenericDesktop, kHIDUsage_GD_Mouse) ||
           has_usage(kHIDPage_Digitizer, kHIDUsage_Dig_TouchPad);
}

CFTypeRef hid_interface_t::property(const std::string& name) const {
    const auto property = _properties.find(name);
    return property == _properties.end() ? nullptr : property->second;
}

const hid_element_t& hid_device_t::element(usage_t usage) {
    const hid_element_t*& known = _elements[{usage.page, usage.id}];
    if (known == nullptr) {
        auto element = std::make_unique<hid_element_t>(*this, usage);
        known = element.get();
        publish_constant(std::move(element));
    }
    return *known;
}

void hid_device_t::expect_present(const char* function) const {
    if (_gone) {
        misuse(function, "the device has been disconnected, or its manager is gone");
    }
}

}  // namespace simulator

using simulator::hid_device_t;
using simulator::hid_element_t;
using simulator::object_of;
using simulator::reference_to;

extern "C" {

CFTypeRef IOHIDDeviceGetProperty(IOHIDDeviceRef device, CFStringRef key) {
    const auto& known = object_of<hid_device_t>(device, __func__);
    known.expect_present(__func__);
    const std::string& name = object_of<simulator::string_t>(key, __func__).text;
    if (name != kIOHIDVendorIDKey && name != kIOHIDProductIDKey) {
        simulator::not_modelled(__func__, "property " + name);
    }
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return known.interface->property(name);
}

IOHIDDeviceRef IOHIDElementGetDevice(IOHIDElementRef element) {
    const auto& known = object_of<hid_element_t>(element, __func__);
    known.device.expect_present(__func__);
    return reference_to<IOHIDDeviceRef>(known.device);
}

std::uint32_t IOHIDElementGetUsagePage(IOHIDElementRef element) {
    const auto& known = object_of<hid_element_t>(element, __func__);
    known.device.expect_present(__func__);
    return known.usage.page;
}

IOHIDElementRef IOHIDValueGetElement(IOHIDValueRef value) {
    return reference_to<IOHIDElementRef>(
        object_of<simulator::hid_value_t>(value, __func__).element);
}

}  // extern "C"
