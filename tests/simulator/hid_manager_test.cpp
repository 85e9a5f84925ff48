#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDKeys.h>
#include <IOKit/hid/IOHIDManager.h>
#include <IOKit/hid/IOHIDUsageTables.h>
#include <gtest/gtest.h>

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

using log_t = std::vector<std::string>;
using matching_t = std::vector<std::vector<std::pair<CFStringRef, std::int32_t>>>;

const matching_t every_mouse = {{{CFSTR(kIOHIDDeviceUsagePageKey), kHIDPage_GenericDesktop},
                                 {CFSTR(kIOHIDDeviceUsageKey), kHIDUsage_GD_Mouse}}};

// A manager that notes what it is called with, as the usage page of each value and "gone".
class recording_manager_t {
  public:
    explicit recording_manager_t(log_t& log, const matching_t& devices = every_mouse)
        : manager(IOHIDManagerCreate(kCFAllocatorDefault, kIOHIDOptionsTypeNone)), _log(log) {
        IOHIDManagerRegisterInputValueCallback(manager, &_value, this);
        IOHIDManagerRegisterDeviceRemovalCallback(manager, &_removal, this);
        match_devices(devices);
        schedule();
    }
    recording_manager_t(const recording_manager_t&) = delete;
    recording_manager_t& operator=(const recording_manager_t&) = delete;
    ~recording_manager_t() { CFRelease(manager); }

    void match_devices(const matching_t& matching) const {
        _match(&IOHIDManagerSetDeviceMatchingMultiple, matching);
    }
    void match_values(const matching_t& matching) const {
        _match(&IOHIDManagerSetInputValueMatchingMultiple, matching);
    }
    void schedule() const {
        IOHIDManagerScheduleWithRunLoop(manager, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    IOReturn open() const { return IOHIDManagerOpen(manager, kIOHIDOptionsTypeNone); }

    const IOHIDManagerRef manager;
    IOHIDDeviceRef last_device = nullptr;

  private:
    void _match(void (*set)(IOHIDManagerRef, CFArrayRef), const matching_t& matching) const {
        const CFMutableArrayRef array =
            CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
        for (const auto& one : matching) {
            const CFMutableDictionaryRef dictionary =
                CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                          &kCFTypeDictionaryValueCallBacks);
            for (const auto& [key, value] : one) {
                const CFNumberRef number =
                    CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value);
                CFDictionarySetValue(dictionary, key, number);
                CFRelease(number);
            }
            CFArrayAppendValue(array, dictionary);
            CFRelease(dictionary);
        }
        set(manager, array);
        CFRelease(array);
    }
    static void _value(void* self, IOReturn result, void* sender, IOHIDValueRef value) {
        auto& recorder = *static_cast<recording_manager_t*>(self);
        EXPECT_EQ(result, kIOReturnSuccess);
        EXPECT_EQ(sender, recorder.manager);
        const IOHIDElementRef element = IOHIDValueGetElement(value);
        recorder.last_device = IOHIDElementGetDevice(element);
        recorder._log.push_back(std::to_string(IOHIDElementGetUsagePage(element)));
    }
    static void _removal(void* self, IOReturn, void*, IOHIDDeviceRef) {
        auto& recorder = *static_cast<recording_manager_t*>(self);
        recorder._log.push_back("gone");
    }

    log_t& _log;
};

class hid_manager_test : public testing::Test {
  protected:
    hid_manager_test() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), log_t());
        simulator::shut_down();
    }

    // What the manager has been called with since the last time.
    log_t called() {
        EXPECT_TRUE(settle(run_loop_e::run));
        return std::exchange(log, {});
    }

    log_t log;
};

TEST_F(hid_manager_test, values_come_from_the_devices_and_elements_that_the_dictionaries_ask_for) {
    const device_id_t device = simulator::connect(
        {.name = "mouse", .vendor_id = 5, .product_id = 6, .has_keyboard = true});
    const matching_t anything = {{}};
    const matching_t motion = {
        {{CFSTR(kIOHIDElementUsagePageKey), 1}, {CFSTR(kIOHIDElementUsageKey), 48}},
        {{CFSTR(kIOHIDElementUsagePageKey), 1}, {CFSTR(kIOHIDElementUsageKey), 49}}};
    const auto product = [](std::int32_t vendor, std::int32_t id, std::int32_t page) {
        return matching_t{{{CFSTR(kIOHIDVendorIDKey), vendor},
                           {CFSTR(kIOHIDProductIDKey), id},
                           {CFSTR(kIOHIDDeviceUsagePageKey), page}}};
    };
    const struct {
        matching_t devices, elements;
        log_t expected;
    } cases[] = {
        {every_mouse, anything, {"1", "1", "9", "1", "12"}},
        {every_mouse, motion, {"1", "1"}},
        {every_mouse, {}, {}},
        {product(5, 6, 7), anything, {"7", "7"}},
        {product(5, 7, 7), anything, {}},
        {product(6, 6, 7), anything, {}},
        {{}, anything, {}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        recording_manager_t recorder(log, one.devices);
        recorder.match_values(one.elements);
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
    const auto move = [&] {
        simulator::move_to(mouse, {});
        return called();
    };
    EXPECT_EQ(IOHIDManagerClose(recorder.manager, kIOHIDOptionsTypeNone), kIOReturnNotOpen);
    EXPECT_EQ(move(), log_t{});
    simulator::revoke(permission_e::input_monitoring);
    EXPECT_EQ(recorder.open(), kIOReturnNotPermitted);
    EXPECT_EQ(move(), log_t{});
    simulator::grant(permission_e::input_monitoring);
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
    const device_id_t mouse = simulator::connect({.name = "mouse"});
    recording_manager_t recorder(log);
    ASSERT_EQ(recorder.open(), kIOReturnSuccess);
    simulator::move(mouse, 1, 0);
    simulator::disconnect(mouse);
    EXPECT_EQ(called(), (log_t{"1", "gone"}));
    EXPECT_DEATH(IOHIDDeviceGetProperty(recorder.last_device, CFSTR(kIOHIDVendorIDKey)),
                 "been disconnected");
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
        ASSERT_EQ(recorder.open(), kIOReturnSuccess);
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.001, true);
    }
    hand.join();
    EXPECT_TRUE(settle(run_loop_e::run));
}

TEST_F(hid_manager_test, mistakes_end_the_program) {
    recording_manager_t recorder(log);
    const auto manager = recorder.manager;
    EXPECT_DEATH(recorder.match_devices({{{CFSTR("Transport"), 1}}}),
                 "IOHIDManagerSetDeviceMatchingMultiple: not modelled: key Transport");
    EXPECT_DEATH(recorder.match_values({{{CFSTR("UsagePage"), 7}, {CFSTR("Usage"), 4}}}),
                 "IOHIDManagerSetInputValueMatchingMultiple: not modelled");
    EXPECT_DEATH(IOHIDManagerSetDeviceMatchingMultiple(manager, nullptr), "not modelled");
    EXPECT_DEATH(IOHIDManagerOpen(manager, 1), "IOHIDManagerOpen: not modelled: options");
    EXPECT_DEATH((IOHIDManagerOpen(manager, 0), IOHIDManagerOpen(manager, 0)),
                 "IOHIDManagerOpen: not modelled");
    EXPECT_DEATH(IOHIDManagerOpen(nullptr, 0), "IOHIDManagerOpen: the reference is null");
}

}  // namespace
