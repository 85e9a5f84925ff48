#include "hid/hid_manager.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <algorithm>
#include <mutex>

#include "core/failure.h"
#include "core/permissions.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

// What one dictionary asks of a device or of an element: the numbers under its keys.
using criteria_t = std::map<std::string, std::int64_t>;

std::vector<criteria_t> criteria_of(CFArrayRef multiple, const std::vector<std::string>& known_keys,
                                    const char* function) {
    if (multiple == nullptr) {
        not_modelled(function, "no array");
    }
    std::vector<criteria_t> all;
    for (const auto& value : object_of<array_t>(multiple, function).values) {
        criteria_t& criteria = all.emplace_back();
        for (const auto& [key, number] :
             object_of<dictionary_t>(value.reference(), function).items) {
            const std::string& name = object_of<string_t>(key.reference(), function).text;
            if (std::find(known_keys.begin(), known_keys.end(), name) == known_keys.end()) {
                not_modelled(function, "key " + name);
            }
            if (object_of(number.reference(), function).type_id() !=
                static_cast<CFTypeID>(number_t::type)) {
                not_modelled(function, name + " that is not a number");
            }
            criteria[name] = object_of<number_t>(number.reference(), function).value;
        }
    }
    return all;
}

std::optional<std::int64_t> wanted(const criteria_t& criteria, const char* key) {
    const auto found = criteria.find(key);
    return found == criteria.end() ? std::nullopt : std::optional(found->second);
}

bool matches(const criteria_t& criteria, const hid_device_t& device) {
    const auto property_matches = [&](const char* key) {
        const auto value = wanted(criteria, key);
        if (!value) {
            return true;
        }
        const CFTypeRef property = device.property(key);
        return property != nullptr &&
               object_of(property, key).type_id() == static_cast<CFTypeID>(number_t::type) &&
               object_of<number_t>(property, key).value == *value;
    };
    return device.has_usage(wanted(criteria, kIOHIDDeviceUsagePageKey),
                            wanted(criteria, kIOHIDDeviceUsageKey)) &&
           property_matches(kIOHIDVendorIDKey) && property_matches(kIOHIDProductIDKey);
}

bool matches(const criteria_t& criteria, const hid_element_t& element) {
    return wanted(criteria, kIOHIDElementUsagePageKey).value_or(element.usage.page) ==
               element.usage.page &&
           wanted(criteria, kIOHIDElementUsageKey).value_or(element.usage.id) == element.usage.id;
}

template <typename thing_t>
bool matches_any(const std::vector<criteria_t>& all, const thing_t& thing) {
    return std::any_of(all.begin(), all.end(),
                       [&thing](const criteria_t& criteria) { return matches(criteria, thing); });
}

template <typename function_t>
struct callback_t {
    function_t function = nullptr;
    void* context = nullptr;
};

// What a manager is, for its owner and for the messages that are on their way to it.
struct manager_state_t {
    const std::shared_ptr<message_source_t> messages = message_source_t::make();

    std::mutex mutex;  // of what follows
    void* sender = nullptr;
    bool open = false;
    std::vector<criteria_t> devices;                  // none: no device
    std::optional<std::vector<criteria_t>> elements;  // not set: all
    callback_t<IOHIDValueCallback> value_callback;
    callback_t<IOHIDDeviceCallback> removal_callback;

    bool knows(const hid_device_t& device) const { return open && matches_any(devices, device); }
};

using manager_list_t = std::vector<std::shared_ptr<manager_state_t>>;

struct managers_t {
    std::mutex mutex;
    manager_list_t list;
};

managers_t& managers() {
    // Never destroyed: the desktop's thread goes on until the process is gone.
    static managers_t& all = *new managers_t;
    return all;
}

manager_list_t all_managers() {
    managers_t& all = managers();
    const std::lock_guard lock(all.mutex);
    return all.list;
}

class hid_manager_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_manager;

    hid_manager_t() {
        state->sender = reference_to<IOHIDManagerRef>(*this);
        managers_t& all = managers();
        const std::lock_guard lock(all.mutex);
        all.list.push_back(state);
    }

    ~hid_manager_t() override {
        state->messages->close();
        managers_t& all = managers();
        const std::lock_guard lock(all.mutex);
        all.list.erase(std::find(all.list.begin(), all.list.end(), state));
    }

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::shared_ptr<manager_state_t> state = std::make_shared<manager_state_t>();
};

// On the program's thread: the value is lent to the callback.
void call_with_value(manager_state_t& manager, const hid_element_t& element) {
    callback_t<IOHIDValueCallback> callback;
    {
        const std::lock_guard lock(manager.mutex);
        if (!manager.open || !element.device.present()) {
            return;
        }
        callback = manager.value_callback;
    }
    if (callback.function != nullptr) {
        constexpr auto function = "an input value callback";
        const CFTypeRef lent = publish(std::make_unique<hid_value_t>(element), function);
        callback.function(callback.context, kIOReturnSuccess, manager.sender,
                          static_cast<IOHIDValueRef>(const_cast<void*>(lent)));
        release(lent, function);
    }
}

void call_with_removal(manager_state_t& manager, const hid_device_t& device) {
    callback_t<IOHIDDeviceCallback> callback;
    {
        const std::lock_guard lock(manager.mutex);
        if (!manager.open) {
            return;
        }
        callback = manager.removal_callback;
    }
    if (callback.function != nullptr) {
        callback.function(callback.context, kIOReturnSuccess, manager.sender,
                          reference_to<IOHIDDeviceRef>(device));
    }
}

}  // namespace

void send_value(const hid_element_t& element) {
    if (!granted(permission_e::input_monitoring)) {
        return;
    }
    for (const auto& manager : all_managers()) {
        const std::lock_guard lock(manager->mutex);
        if (manager->messages->scheduled() && manager->knows(element.device) &&
            (!manager->elements || matches_any(*manager->elements, element))) {
            manager->messages->post([manager, &element] { call_with_value(*manager, element); });
        }
    }
}

void send_removal(hid_device_t& device) {
    const std::shared_ptr<void> all_told(nullptr, [&device](void*) { device.unplug(); });
    for (const auto& manager : all_managers()) {
        const std::lock_guard lock(manager->mutex);
        if (manager->messages->scheduled() && manager->knows(device)) {
            manager->messages->post(
                [manager, &device, all_told] { call_with_removal(*manager, device); });
        }
    }
}

std::vector<std::shared_ptr<message_source_t>> hid_messages() {
    std::vector<std::shared_ptr<message_source_t>> messages;
    for (const auto& manager : all_managers()) {
        messages.push_back(manager->messages);
    }
    return messages;
}

}  // namespace simulator

using simulator::hid_manager_t;
using simulator::manager_state_t;
using simulator::not_modelled;
using simulator::object_of;

namespace {

manager_state_t& state_of(IOHIDManagerRef manager, const char* function) {
    return *object_of<hid_manager_t>(manager, function).state;
}

void expect_no_options(IOOptionBits options, const char* function) {
    if (options != kIOHIDOptionsTypeNone) {
        not_modelled(function, "options");
    }
}

}  // namespace

extern "C" {

IOHIDManagerRef IOHIDManagerCreate(CFAllocatorRef allocator, IOOptionBits options) {
    simulator::expect_default_allocator(allocator, __func__);
    expect_no_options(options, __func__);
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return static_cast<IOHIDManagerRef>(
        const_cast<void*>(simulator::publish(std::make_unique<hid_manager_t>(), __func__)));
}

IOReturn IOHIDManagerOpen(IOHIDManagerRef manager, IOOptionBits options) {
    manager_state_t& state = state_of(manager, __func__);
    expect_no_options(options, __func__);
    const std::lock_guard lock(state.mutex);
    if (state.open) {
        not_modelled(__func__, "a manager that is open");
    }
    if (simulator::shall_fail(__func__) ||
        !simulator::granted(simulator::permission_e::input_monitoring)) {
        return kIOReturnNotPermitted;
    }
    state.open = true;
    return kIOReturnSuccess;
}

IOReturn IOHIDManagerClose(IOHIDManagerRef manager, IOOptionBits options) {
    manager_state_t& state = state_of(manager, __func__);
    expect_no_options(options, __func__);
    const std::lock_guard lock(state.mutex);
    return std::exchange(state.open, false) ? kIOReturnSuccess : kIOReturnNotOpen;
}

void IOHIDManagerScheduleWithRunLoop(IOHIDManagerRef manager, CFRunLoopRef runLoop,
                                     CFStringRef runLoopMode) {
    state_of(manager, __func__).messages->add_to(runLoop, runLoopMode, __func__);
}

void IOHIDManagerUnscheduleFromRunLoop(IOHIDManagerRef manager, CFRunLoopRef runLoop,
                                       CFStringRef runLoopMode) {
    state_of(manager, __func__).messages->remove_from(runLoop, runLoopMode, __func__);
}

void IOHIDManagerSetDeviceMatchingMultiple(IOHIDManagerRef manager, CFArrayRef multiple) {
    manager_state_t& state = state_of(manager, __func__);
    auto devices = simulator::criteria_of(
        multiple,
        {kIOHIDDeviceUsagePageKey, kIOHIDDeviceUsageKey, kIOHIDVendorIDKey, kIOHIDProductIDKey},
        __func__);
    const std::lock_guard lock(state.mutex);
    state.devices = std::move(devices);
}

void IOHIDManagerSetInputValueMatchingMultiple(IOHIDManagerRef manager, CFArrayRef multiple) {
    manager_state_t& state = state_of(manager, __func__);
    auto elements = simulator::criteria_of(
        multiple, {kIOHIDElementUsagePageKey, kIOHIDElementUsageKey}, __func__);
    for (const auto& criteria : elements) {
        if (simulator::wanted(criteria, kIOHIDElementUsagePageKey) == kHIDPage_KeyboardOrKeypad &&
            simulator::wanted(criteria, kIOHIDElementUsageKey)) {
            not_modelled(__func__, "one key of a keyboard");
        }
    }
    const std::lock_guard lock(state.mutex);
    state.elements = std::move(elements);
}

void IOHIDManagerRegisterInputValueCallback(IOHIDManagerRef manager, IOHIDValueCallback callback,
                                            void* context) {
    manager_state_t& state = state_of(manager, __func__);
    const std::lock_guard lock(state.mutex);
    state.value_callback = {callback, context};
}

void IOHIDManagerRegisterDeviceRemovalCallback(IOHIDManagerRef manager,
                                               IOHIDDeviceCallback callback, void* context) {
    manager_state_t& state = state_of(manager, __func__);
    const std::lock_guard lock(state.mutex);
    state.removal_callback = {callback, context};
}

}  // extern "C"
