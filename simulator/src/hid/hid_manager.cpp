#include "hid/hid_manager.h"

#include <IOKit/hid/IOHIDUsageTables.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "core/calls.h"
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

bool matches(const criteria_t& criteria, const hid_interface_t& interface) {
    const auto property_matches = [&](const char* key) {
        const auto value = wanted(criteria, key);
        if (!value) {
            return true;
        }
        const CFTypeRef property = interface.property(key);
        return property != nullptr &&
               object_of(property, key).type_id() == static_cast<CFTypeID>(number_t::type) &&
               object_of<number_t>(property, key).value == *value;
    };
    return interface.has_usage(wanted(criteria, kIOHIDDeviceUsagePageKey),
                               wanted(criteria, kIOHIDDeviceUsageKey)) &&
           property_matches(kIOHIDVendorIDKey) && property_matches(kIOHIDProductIDKey);
}

bool matches(const criteria_t& criteria, usage_t control) {
    return wanted(criteria, kIOHIDElementUsagePageKey).value_or(control.page) == control.page &&
           wanted(criteria, kIOHIDElementUsageKey).value_or(control.id) == control.id;
}

template <typename function_t>
struct callback_t {
    function_t function = nullptr;
    void* context = nullptr;
};

// What a manager is, for its owner and for the messages that are on their way to it.
struct manager_state_t {
    const std::shared_ptr<message_source_t> messages = message_source_t::make();
    void* manager = nullptr;  // its reference

    std::mutex mutex;             // of what follows
    CFRunLoopRef loop = nullptr;  // null: not scheduled
    CFStringRef mode = nullptr;
    bool open = false;  // also when a device could not be opened
    bool closed = false;
    // Whether it is told of arrivals and removals: from its matching until it is unscheduled.
    bool notified = false;
    std::vector<criteria_t> matching;
    std::optional<std::vector<criteria_t>> elements;  // not set: all
    callback_t<IOHIDValueCallback> value_callback;
    callback_t<IOHIDDeviceCallback> removal_callback;
    std::vector<hid_device_t*> devices;  // changes on the program's thread alone

    // With the mutex held.
    bool wants(usage_t control) const {
        return !elements ||
               std::any_of(elements->begin(), elements->end(),
                           [&](const criteria_t& criteria) { return matches(criteria, control); });
    }
    void unschedule(const char* function) {
        if (loop != nullptr) {
            messages->remove_from(std::exchange(loop, nullptr), mode, function);
            notified = false;
        }
    }
};

using manager_list_t = std::vector<std::shared_ptr<manager_state_t>>;

struct world_t {
    std::mutex mutex;  // taken before a manager's
    manager_list_t managers;
    std::vector<std::shared_ptr<hid_interface_t>> interfaces;
};

world_t& world() {
    // Never destroyed: the desktop's thread goes on until the process is gone.
    static world_t& all = *new world_t;
    return all;
}

manager_list_t all_managers() {
    const std::lock_guard lock(world().mutex);
    return world().managers;
}

class hid_manager_t final : public object_t {
  public:
    static constexpr type_e type = type_e::hid_manager;

    hid_manager_t() {
        state->manager = reference_to<IOHIDManagerRef>(*this);
        const std::lock_guard lock(world().mutex);
        world().managers.push_back(state);
    }

    ~hid_manager_t() override {
        state->messages->close();
        const std::lock_guard lock(world().mutex);
        manager_list_t& all = world().managers;
        all.erase(std::find(all.begin(), all.end(), state));
        for (hid_device_t* const device : state->devices) {
            device->end();
        }
    }

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::shared_ptr<manager_state_t> state = std::make_shared<manager_state_t>();
};

// What follows runs on the program's thread, and calls back and asks the user with no lock held.

// Makes a device of an interface for each dictionary that matches it.
std::vector<hid_device_t*> devices_of(manager_state_t& manager,
                                      const std::shared_ptr<hid_interface_t>& interface) {
    std::vector<hid_device_t*> made;
    const std::lock_guard lock(manager.mutex);
    for (const criteria_t& criteria : manager.matching) {
        if (matches(criteria, *interface)) {
            auto device = std::make_unique<hid_device_t>(interface);
            made.push_back(device.get());
            publish_constant(std::move(device));
        }
    }
    manager.devices.insert(manager.devices.end(), made.begin(), made.end());
    return made;
}

IOReturn open_device(manager_state_t& manager, hid_device_t& device) {
    if (device.interface->guarded() && !request_input_monitoring()) {
        return kIOReturnNotPermitted;
    }
    // One that another program has seized is open all the same: it sends when that one ends.
    const std::lock_guard lock(manager.mutex);
    device.open = true;
    return device.interface->seized ? kIOReturnExclusiveAccess : kIOReturnSuccess;
}

// Tries all of them; the first code that is not success counts.
IOReturn open_devices(manager_state_t& manager, const std::vector<hid_device_t*>& devices) {
    IOReturn first = kIOReturnSuccess;
    for (hid_device_t* const device : devices) {
        const IOReturn result = open_device(manager, *device);
        first = first == kIOReturnSuccess ? result : first;
    }
    return first;
}

void take_arrival(manager_state_t& manager, const std::shared_ptr<hid_interface_t>& interface) {
    bool open = false;
    {
        const std::lock_guard lock(manager.mutex);
        if (!manager.notified || !interface->present) {
            return;
        }
        open = manager.open;
    }
    const auto arrived = devices_of(manager, interface);
    if (open) {
        open_devices(manager, arrived);
    }
}

void take_removal(manager_state_t& manager, const std::shared_ptr<hid_interface_t>& interface) {
    std::vector<hid_device_t*> gone;
    callback_t<IOHIDDeviceCallback> callback;
    {
        const std::lock_guard lock(manager.mutex);
        if (!manager.notified) {
            return;
        }
        callback = manager.removal_callback;
        const auto is_left = [&](const hid_device_t* device) {
            return device->interface != interface;
        };
        const auto end_of_left =
            std::stable_partition(manager.devices.begin(), manager.devices.end(), is_left);
        gone.assign(end_of_left, manager.devices.end());
        manager.devices.erase(end_of_left, manager.devices.end());
    }
    for (hid_device_t* const device : gone) {
        if (callback.function != nullptr) {
            callback.function(callback.context, kIOReturnSuccess, manager.manager,
                              reference_to<IOHIDDeviceRef>(*device));
        }
        device->end();
    }
}

// Calls back with every value that waits, one after the other; the values are lent.
void take_values(manager_state_t& manager, hid_device_t& device) {
    constexpr auto function = "an input value callback";
    while (true) {
        usage_t control;
        callback_t<IOHIDValueCallback> callback;
        {
            const std::lock_guard lock(manager.mutex);
            if (device.values.empty()) {
                return;
            }
            control = device.values.front();
            device.values.pop_front();
            callback = manager.value_callback;
        }
        if (callback.function != nullptr) {
            const CFTypeRef lent =
                publish(std::make_unique<hid_value_t>(device.element(control)), function);
            callback.function(callback.context, kIOReturnSuccess,
                              reference_to<IOHIDDeviceRef>(device),
                              static_cast<IOHIDValueRef>(const_cast<void*>(lent)));
            release(lent, function);
        }
    }
}

}  // namespace

void plug_in(const std::shared_ptr<hid_interface_t>& interface) {
    const std::lock_guard lock(world().mutex);
    world().interfaces.push_back(interface);
    for (const auto& manager : world().managers) {
        const std::lock_guard manager_lock(manager->mutex);
        if (manager->notified) {
            manager->messages->post([manager, interface] { take_arrival(*manager, interface); });
        }
    }
}

void unplug(const std::shared_ptr<hid_interface_t>& interface) {
    interface->present = false;
    const std::lock_guard lock(world().mutex);
    auto& all = world().interfaces;
    all.erase(std::remove(all.begin(), all.end(), interface), all.end());
    for (const auto& manager : world().managers) {
        const std::lock_guard manager_lock(manager->mutex);
        if (manager->notified) {
            manager->messages->post([manager, interface] { take_removal(*manager, interface); });
        }
    }
}

void send_report(const hid_interface_t& interface, const usages_t& report) {
    for (const auto& manager : all_managers()) {
        const std::lock_guard lock(manager->mutex);
        for (hid_device_t* const device : manager->devices) {
            if (manager->loop == nullptr || device->interface.get() != &interface ||
                !device->open) {
                continue;
            }
            const bool nothing_waits = device->values.empty();
            std::copy_if(report.begin(), report.end(), std::back_inserter(device->values),
                         [&](usage_t control) { return manager->wants(control); });
            if (nothing_waits && !device->values.empty()) {
                manager->messages->post([manager, device] { take_values(*manager, *device); });
            }
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
    if (simulator::shall_fail(__func__)) {
        return kIOReturnError;
    }
    std::vector<simulator::hid_device_t*> devices;
    {
        const std::lock_guard lock(state.mutex);
        if (state.closed) {
            not_modelled(__func__, "a manager that was closed");
        }
        if (std::exchange(state.open, true)) {
            return kIOReturnSuccess;
        }
        devices = state.devices;
    }
    return simulator::open_devices(state, devices);
}

IOReturn IOHIDManagerClose(IOHIDManagerRef manager, IOOptionBits options) {
    const simulator::call_t call(__func__);
    manager_state_t& state = state_of(manager, __func__);
    expect_no_options(options, __func__);
    const std::lock_guard lock(state.mutex);
    state.unschedule(__func__);
    if (!std::exchange(state.open, false)) {
        return kIOReturnNotOpen;
    }
    state.closed = true;
    IOReturn result = kIOReturnSuccess;
    for (simulator::hid_device_t* const device : state.devices) {
        if (!std::exchange(device->open, false)) {
            result = kIOReturnNotOpen;
        }
    }
    return result;
}

void IOHIDManagerScheduleWithRunLoop(IOHIDManagerRef manager, CFRunLoopRef runLoop,
                                     CFStringRef runLoopMode) {
    manager_state_t& state = state_of(manager, __func__);
    const std::lock_guard lock(state.mutex);
    if (state.loop != nullptr) {
        simulator::misuse(__func__, "the manager is scheduled already");
    }
    state.messages->add_to(runLoop, runLoopMode, __func__);
    state.loop = runLoop;
    state.mode = runLoopMode;
}

void IOHIDManagerUnscheduleFromRunLoop(IOHIDManagerRef manager, CFRunLoopRef runLoop,
                                       CFStringRef runLoopMode) {
    const simulator::call_t call(__func__);
    manager_state_t& state = state_of(manager, __func__);
    const std::lock_guard lock(state.mutex);
    if (state.loop == runLoop && state.mode == runLoopMode) {
        state.unschedule(__func__);
    }
}

void IOHIDManagerSetDeviceMatchingMultiple(IOHIDManagerRef manager, CFArrayRef multiple) {
    manager_state_t& state = state_of(manager, __func__);
    auto matching = simulator::criteria_of(
        multiple,
        {kIOHIDDeviceUsagePageKey, kIOHIDDeviceUsageKey, kIOHIDVendorIDKey, kIOHIDProductIDKey},
        __func__);
    const std::lock_guard lock(simulator::world().mutex);
    {
        const std::lock_guard manager_lock(state.mutex);
        if (state.notified || state.open) {
            not_modelled(__func__, "a manager that is matched or open");
        }
        state.matching = std::move(matching);
        state.notified = true;
    }
    for (const auto& interface : simulator::world().interfaces) {
        simulator::devices_of(state, interface);
    }
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
