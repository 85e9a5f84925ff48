#include "hid/hid_device.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <algorithm>
#include <memory>

#include "core/failure.h"
#include "core_foundation/values.h"

namespace simulator {

hid_device_t& hid_device_t::make_pointer(const device_description_t& description) {
    std::vector<usage_t> controls = {{kHIDPage_GenericDesktop, kHIDUsage_GD_X},
                                     {kHIDPage_GenericDesktop, kHIDUsage_GD_Y},
                                     {kHIDPage_GenericDesktop, kHIDUsage_GD_Wheel},
                                     {kHIDPage_Consumer, kHIDUsage_Csmr_ACPan}};
    for (std::uint32_t button = 1; button <= button_count; ++button) {
        controls.push_back({kHIDPage_Button, button});
    }
    return _make(description, {{kHIDPage_GenericDesktop, kHIDUsage_GD_Mouse}}, controls);
}

hid_device_t& hid_device_t::make_keyboard(const device_description_t& description) {
    return _make(description,
                 {{kHIDPage_GenericDesktop, kHIDUsage_GD_Keyboard},
                  {kHIDPage_KeyboardOrKeypad, kHIDUsage_GD_Keyboard}},
                 {{kHIDPage_KeyboardOrKeypad, any_key}});
}

bool hid_device_t::has_usage(std::optional<std::int64_t> page,
                             std::optional<std::int64_t> id) const {
    return std::any_of(_usages.begin(), _usages.end(), [&](const usage_t& usage) {
        return page.value_or(usage.page) == usage.page && id.value_or(usage.id) == usage.id;
    });
}

CFTypeRef hid_device_t::property(const std::string& name) const {
    const auto property = _properties.find(name);
    return property == _properties.end() ? nullptr : property->second;
}

void hid_device_t::expect_present(const char* function) const {
    if (_gone) {
        misuse(function, "the device has been disconnected");
    }
}

hid_device_t::hid_device_t(const device_description_t& description, std::vector<usage_t> usages)
    : _usages(std::move(usages)) {
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

hid_device_t& hid_device_t::_make(const device_description_t& description,
                                  std::vector<usage_t> usages,
                                  const std::vector<usage_t>& controls) {
    std::unique_ptr<hid_device_t> made(new hid_device_t(description, std::move(usages)));
    hid_device_t& device = *made;
    for (const usage_t& control : controls) {
        auto element = std::make_unique<hid_element_t>(device, control);
        device._elements[control] = element.get();
        publish_constant(std::move(element));
    }
    publish_constant(std::move(made));
    return device;
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
    return known.property(name);
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
