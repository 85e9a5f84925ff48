#pragma once

#include <IOKit/hid/IOHIDManager.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/input.h"
#include "core/object.h"

namespace simulator {

// The one control that stands for all keys: the codes of the macOS keyboard are not HID's, so a key
// is not told from another by its usage.
inline constexpr std::uint32_t any_key = 0;

// One HID interface of something that is plugged in. Any thread.
class hid_interface_t {
  public:
    hid_interface_t(const device_description_t& description, usages_t usage_pairs);

    // Whether one of its pairs of DeviceUsagePage and DeviceUsage is as asked. As on a Mac, a usage
    // without a page asks for nothing.
    bool has_usage(std::optional<std::int64_t> page, std::optional<std::int64_t> id) const;

    // Whether opening it needs Input Monitoring.
    bool guarded() const;

    // The property of that name; lent, and null when there is none.
    CFTypeRef property(const std::string& name) const;

    std::atomic<bool> present = true;
    std::atomic<bool> seized = false;  // by another program

  private:
    const usages_t _usage_pairs;
    std::map<std::string, CFTypeRef> _properties;
};

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

// What a manager lends of an interface that one of its dictionaries matches. It stays in memory
// until the process ends, but a program that uses it after its removal makes a mistake.
class hid_device_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_device;
    explicit hid_device_t(std::shared_ptr<hid_interface_t> of) : interface(std::move(of)) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    // The control of that usage; on the thread of the manager's run loop.
    const hid_element_t& element(usage_t usage);

    void end() { _gone = true; }
    // Ends the program when `function` is given the device although it is gone.
    void expect_present(const char* function) const;

    const std::shared_ptr<hid_interface_t> interface;
    // Guarded by the manager's mutex.
    bool open = false;
    std::deque<usage_t> values;  // that wait for the program

  private:
    std::map<std::pair<std::uint32_t, std::uint32_t>, const hid_element_t*> _elements;
    std::atomic<bool> _gone = false;
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
