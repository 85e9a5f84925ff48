#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDKeys.h>
#include <IOKit/hid/IOHIDManager.h>
#include <IOKit/hid/IOHIDUsageTables.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"

namespace {

using simulator::device_id_t;
using simulator::permission_e;
using simulator::run_loop_e;
using simulator::settle;

using matching_t = std::vector<std::map<std::string, std::int32_t>>;

const matching_t every_mouse = {{{kIOHIDDeviceUsagePageKey, kHIDPage_GenericDesktop},
                                 {kIOHIDDeviceUsageKey, kHIDUsage_GD_Mouse}}};

CFArrayRef new_array(const matching_t& matching) {
    const CFMutableArrayRef array =
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    for (const auto& one : matching) {
        const CFMutableDictionaryRef dictionary =
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        for (const auto& [key, value] : one) {
            const CFStringRef name = CFStringCreateWithBytes(
                kCFAllocatorDefault, reinterpret_cast<const UInt8*>(key.data()),
                static_cast<CFIndex>(key.size()), kCFStringEncodingUTF8, false);
            const CFNumberRef number =
                CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value);
            CFDictionarySetValue(dictionary, name, number);
            CFRelease(number);
            CFRelease(name);
        }
        CFArrayAppendValue(array, dictionary);
        CFRelease(dictionary);
    }
    return array;
}

std::int32_t vendor_of(IOHIDDeviceRef device) {
    std::int32_t number = -1;
    if (const CFTypeRef vendor = IOHIDDeviceGetProperty(device, CFSTR(kIOHIDVendorIDKey))) {
        CFNumberGetValue(static_cast<CFNumberRef>(vendor), kCFNumberSInt32Type, &number);
    }
    return number;
}

// A manager that notes what it is called with, as the usage page of each value and "gone".
class recording_manager_t {
  public:
    explicit recording_manager_t(std::vector<std::string>& log)
        : manager(IOHIDManagerCreate(kCFAllocatorDefault, kIOHIDOptionsTypeNone)), _log(log) {
        IOHIDManagerRegisterInputValueCallback(manager, &_value, this);
        IOHIDManagerRegisterDeviceRemovalCallback(manager, &_removal, this);
    }
    recording_manager_t(const recording_manager_t&) = delete;
    recording_manager_t& operator=(const recording_manager_t&) = delete;
    ~recording_manager_t() { CFRelease(manager); }

    void match_devices(const matching_t& matching) const {
        const CFArrayRef array = new_array(matching);
        IOHIDManagerSetDeviceMatchingMultiple(manager, array);
        CFRelease(array);
    }
    void match_values(const matching_t& matching) const {
        const CFArrayRef array = new_array(matching);
        IOHIDManagerSetInputValueMatchingMultiple(manager, array);
        CFRelease(array);
    }
    void schedule() const {
        IOHIDManagerScheduleWithRunLoop(manager, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    IOReturn open() const { return IOHIDManagerOpen(manager, kIOHIDOptionsTypeNone); }

    const IOHIDManagerRef manager;
    IOHIDDeviceRef last_device = nullptr;

  private:
    static void _value(void* self, IOReturn result, void* sender, IOHIDValueRef value) {
        auto& recorder = *static_cast<recording_manager_t*>(self);
        EXPECT_EQ(result, kIOReturnSuccess);
        EXPECT_EQ(sender, recorder.manager);
        const IOHIDElementRef element = IOHIDValueGetElement(value);
        recorder.last_device = IOHIDElementGetDevice(element);
        recorder._log.push_back(std::to_string(IOHIDElementGetUsagePage(element)));
    }
    static void _removal(void* self, IOReturn, void*, IOHIDDeviceRef device) {
        auto& recorder = *static_cast<recording_manager_t*>(self);
        recorder._log.push_back("gone " + std::to_string(vendor_of(device)));
    }

    std::vector<std::string>& _log;
};

class hid_manager_test : public testing::Test {
  protected:
    hid_manager_test() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), std::vector<std::string>());
        simulator::shut_down();
    }

    // What the manager has been called with since the last time.
    std::vector<std::string> called() {
        EXPECT_TRUE(settle(run_loop_e::run));
        return std::exchange(log, {});
    }

    std::vector<std::string> log;
};

using log_t = std::vector<std::string>;

TEST_F(hid_manager_test, values_come_from_the_devices_and_elements_that_the_dictionaries_ask_for) {
    const device_id_t device = simulator::connect(
        {.name = "mouse", .vendor_id = 0x1111, .product_id = 0x22, .has_keyboard = true});
    const matching_t anything = {{}};
    const matching_t motion = {{{kIOHIDElementUsagePageKey, 1}, {kIOHIDElementUsageKey, 48}},
                               {{kIOHIDElementUsagePageKey, 1}, {kIOHIDElementUsageKey, 49}}};
    const matching_t keys = {{{kIOHIDElementUsagePageKey, 7}}};
    const auto product = [](std::int32_t vendor, std::int32_t product_id, std::int32_t page) {
        return matching_t{{{kIOHIDVendorIDKey, vendor},
                           {kIOHIDProductIDKey, product_id},
                           {kIOHIDDeviceUsagePageKey, page}}};
    };
    const struct {
        matching_t devices, elements;
        log_t expected;
    } cases[] = {
        {every_mouse, anything, {"1", "1", "9", "1", "12"}},
        {every_mouse, motion, {"1", "1"}},
        {product(0x1111, 0x22, 7), anything, {"7", "7"}},
        {product(0x1111, 0x22, 1), keys, {"7", "7"}},
        {product(0x1111, 0x23, 7), anything, {}},
        {product(0x1112, 0x22, 7), anything, {}},
        {{{{kIOHIDDeviceUsagePageKey, 7}, {kIOHIDDeviceUsageKey, 2}}}, anything, {}},
        {{}, anything, {}},
        {every_mouse, {}, {}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        recording_manager_t recorder(log);
        recorder.match_devices(one.devices);
        recorder.match_values(one.elements);
        recorder.schedule();
        ASSERT_EQ(recorder.open(), kIOReturnSuccess);
        simulator::move(device, 1, 1);
        simulator::press(device, 3);
        simulator::scroll(device, 1, 1);
        simulator::press_key(device, 123);
        simulator::repeat_key(device, 123);
        simulator::release_key(device, 123);
        EXPECT_EQ(called(), one.expected);
    }
}

TEST_F(hid_manager_test, values_come_only_while_scheduled_open_and_permitted) {
    const device_id_t mouse = simulator::connect({.name = "mouse"});
    recording_manager_t recorder(log);
    recorder.match_devices(every_mouse);
    const auto move = [&] {
        simulator::move_to(mouse, {});
        return called();
    };
    EXPECT_EQ(IOHIDManagerClose(recorder.manager, kIOHIDOptionsTypeNone), kIOReturnNotOpen);
    recorder.schedule();
    EXPECT_EQ(move(), log_t{});
    simulator::revoke(permission_e::input_monitoring);
    EXPECT_EQ(recorder.open(), kIOReturnNotPermitted);
    EXPECT_EQ(move(), log_t{});
    simulator::grant(permission_e::input_monitoring);
    simulator::fail_next("IOHIDManagerOpen");
    EXPECT_EQ(recorder.open(), kIOReturnNotPermitted);
    EXPECT_EQ(recorder.open(), kIOReturnSuccess);
    EXPECT_EQ(move(), log_t{"1"});
    simulator::revoke(permission_e::input_monitoring);
    EXPECT_EQ(move(), log_t{});
    simulator::grant(permission_e::input_monitoring);
    IOHIDManagerUnscheduleFromRunLoop(recorder.manager, CFRunLoopGetCurrent(),
                                      kCFRunLoopDefaultMode);
    EXPECT_EQ(move(), log_t{});
    recorder.schedule();
    EXPECT_EQ(move(), log_t{"1"});

    // What is under way when it is closed is lost.
    simulator::move_to(mouse, {});
    while (settle(run_loop_e::leave, std::chrono::milliseconds(5))) {
    }
    EXPECT_EQ(IOHIDManagerClose(recorder.manager, kIOHIDOptionsTypeNone), kIOReturnSuccess);
    EXPECT_EQ(called(), log_t{});
    EXPECT_EQ(move(), log_t{});
}

TEST_F(hid_manager_test, a_removed_device_is_dead_once_its_managers_know) {
    const device_id_t mouse = simulator::connect({.name = "mouse", .vendor_id = 5});
    recording_manager_t recorder(log);
    recorder.match_devices(every_mouse);
    recorder.schedule();
    ASSERT_EQ(recorder.open(), kIOReturnSuccess);
    simulator::move(mouse, 1, 0);
    simulator::disconnect(mouse);
    EXPECT_EQ(called(), (log_t{"1", "gone 5"}));
    EXPECT_DEATH(vendor_of(recorder.last_device), "been disconnected");
    EXPECT_DEATH(simulator::move(mouse, 1, 0), "move: no such device");
}

TEST_F(hid_manager_test, a_manager_may_be_released_while_values_are_under_way) {
    const device_id_t mouse = simulator::connect({.name = "mouse"});
    std::thread hand([mouse] {
        for (int i = 0; i < 200; ++i) {
            simulator::move(mouse, 1, 1);
        }
    });
    for (int i = 0; i < 20; ++i) {
        recording_manager_t recorder(log);
        recorder.match_devices(every_mouse);
        recorder.schedule();
        ASSERT_EQ(recorder.open(), kIOReturnSuccess);
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.001, true);
    }
    hand.join();
    EXPECT_TRUE(settle(run_loop_e::run));
}

TEST_F(hid_manager_test, mistakes_end_the_program) {
    recording_manager_t recorder(log);
    const auto manager = recorder.manager;
    EXPECT_DEATH(recorder.match_devices({{{"Transport", 1}}}),
                 "IOHIDManagerSetDeviceMatchingMultiple: not modelled: key Transport");
    EXPECT_DEATH(recorder.match_values({{{"UsagePage", 7}, {"Usage", 4}}}),
                 "IOHIDManagerSetInputValueMatchingMultiple: not modelled");
    EXPECT_DEATH(IOHIDManagerSetDeviceMatchingMultiple(manager, nullptr), "not modelled");
    EXPECT_DEATH(IOHIDManagerOpen(manager, 1), "IOHIDManagerOpen: not modelled: options");
    EXPECT_DEATH((IOHIDManagerOpen(manager, 0), IOHIDManagerOpen(manager, 0)),
                 "IOHIDManagerOpen: not modelled");
    EXPECT_DEATH(IOHIDManagerOpen(nullptr, 0), "IOHIDManagerOpen: the reference is null");
}

}  // namespace
