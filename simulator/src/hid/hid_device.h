#pragma once

#include <IOKit/hid/IOHIDManager.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/input.h"
#include "core/object.h"

namespace simulator {

struct usage_t {
    std::uint32_t page = 0;
    std::uint32_t id = 0;

    bool operator<(const usage_t& other) const {
        return std::pair(page, id) < std::pair(other.page, other.id);
    }
};

// The one element that stands for all keys: the codes of the macOS keyboard are not HID's, so a key
// is not told from another by its usage.
inline constexpr std::uint32_t any_key = 0;
// How many buttons a pointer has; Quartz counts them from 0, HID from 1.
inline constexpr std::uint32_t button_count = 32;

class hid_device_t;

// A control of a device. It lives as long as the device.
class hid_element_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_element;
    hid_element_t(hid_device_t& owner, usage_t what) : device(owner), usage(what) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    hid_device_t& device;
    const usage_t usage;
};

// One HID interface of something that is plugged in. It stays in memory until the process ends, but
// a program that uses it after its removal makes a mistake.
class hid_device_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_device;

    // The interface of the described device that is a pointer, or a keyboard.
    static hid_device_t& make_pointer(const device_description_t& description);
    static hid_device_t& make_keyboard(const device_description_t& description);

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    // Whether one of its pairs of DeviceUsagePage and DeviceUsage is as asked.
    bool has_usage(std::optional<std::int64_t> page, std::optional<std::int64_t> id) const;

    // A control that the device has.
    const hid_element_t& element(usage_t usage) const { return *_elements.at(usage); }

    // The property of that name; lent, and null when the device has none.
    CFTypeRef property(const std::string& name) const;

    bool present() const { return !_gone; }
    void unplug() { _gone = true; }
    // Ends the program when `function` is given the device although it is gone.
    void expect_present(const char* function) const;

  private:
    hid_device_t(const device_description_t& description, std::vector<usage_t> usages);
    static hid_device_t& _make(const device_description_t& description, std::vector<usage_t> usages,
                               const std::vector<usage_t>& controls);

    const std::vector<usage_t> _usages;
    std::map<std::string, CFTypeRef> _properties;
    std::map<usage_t, const hid_element_t*> _elements;
    std::atomic<bool> _gone{false};
};

// The value of a control at one moment.
class hid_value_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_value;
    explicit hid_value_t(const hid_element_t& of) : element(of) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const hid_element_t& element;
};

// The reference under which a program holds an object.
template <typename ref_t, typename object_type_t>
ref_t reference_to(const object_type_t& object) {
    const object_t& published = object;
    return static_cast<ref_t>(const_cast<void*>(static_cast<const void*>(&published)));
}

}  // namespace simulator
