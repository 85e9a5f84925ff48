#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDManager.h>
#include <gtest/gtest.h>

#include <chrono>
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
using simulator::usages_t;

using matching_t = std::vector<std::vector<std::pair<CFStringRef, std::int32_t>>>;

const matching_t anything = {{}};
const matching_t every_mouse = {{{CFSTR("DeviceUsagePage"), 1}, {CFSTR("DeviceUsage"), 2}}};

// A manager that notes what it is called with: the usage page of each value, as a hexadecimal
// digit, and "x" for each device that goes.
struct recorder_t {
    explicit recorder_t(std::string& notes, const matching_t& devices = every_mouse) : log(notes) {
        const auto note_value = [](void* self, IOReturn, void* sender, IOHIDValueRef value) {
            auto& recorder = *static_cast<recorder_t*>(self);
            recorder.last_device = IOHIDElementGetDevice(IOHIDValueGetElement(value));
            EXPECT_EQ(sender, recorder.last_device);
            recorder.log +=
                "0123456789abcdef"[IOHIDElementGetUsagePage(IOHIDValueGetElement(value))];
        };
        const auto note_removal = [](void* self, IOReturn, void* sender, IOHIDDeviceRef) {
            EXPECT_EQ(sender, static_cast<recorder_t*>(self)->manager);
            static_cast<recorder_t*>(self)->log += "x";
        };
        IOHIDManagerRegisterInputValueCallback(manager, note_value, this);
        IOHIDManagerRegisterDeviceRemovalCallback(manager, note_removal, this);
        match(&IOHIDManagerSetDeviceMatchingMultiple, devices);
        schedule();
    }
    recorder_t(const recorder_t&) = delete;
    ~recorder_t() { CFRelease(manager); }

    void match(void (*set)(IOHIDManagerRef, CFArrayRef), const matching_t& matching) const {
        const auto array = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
        for (const auto& one : matching) {
            const auto dictionary = CFDictionaryCreateMutable(
                nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
            for (const auto& [key, value] : one) {
                const auto number = CFNumberCreate(nullptr, kCFNumberSInt32Type, &value);
                CFDictionarySetValue(dictionary, key, number);
                CFRelease(number);
            }
            CFArrayAppendValue(array, dictionary);
            CFRelease(dictionary);
        }
        set(manager, array);
        CFRelease(array);
    }
    void schedule() const {
        IOHIDManagerScheduleWithRunLoop(manager, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    void unschedule() const {
        IOHIDManagerUnscheduleFromRunLoop(manager, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    IOReturn open() const { return IOHIDManagerOpen(manager, 0); }
    IOReturn close() const { return IOHIDManagerClose(manager, 0); }

    std::string& log;
    const IOHIDManagerRef manager = IOHIDManagerCreate(nullptr, 0);
    IOHIDDeviceRef last_device = nullptr;
};

class hid_manager_test : public testing::Test {
  protected:
    hid_manager_test() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void TearDown() override {
        EXPECT_TRUE(simulator::objects_alive().empty());
        simulator::shut_down();
    }

    static device_id_t connect(const usages_t& pointer = simulator::mouse_pairs) {
        return simulator::connect({.name = "device", .pointer = pointer});
    }
    // What the manager has been called with since the last time.
    std::string called() {
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
        return std::exchange(log, {});
    }
    std::string moved(device_id_t device) {
        simulator::move(device, 1, 0);
        return called();
    }

    std::string log;
};

TEST_F(hid_manager_test, values_come_from_the_devices_and_elements_that_the_dictionaries_ask_for) {
    const auto product = [](std::int32_t vendor, std::int32_t id) {
        return matching_t{
            {{CFSTR("VendorID"), vendor}, {CFSTR("ProductID"), id}, {CFSTR("DeviceUsagePage"), 7}}};
    };
    const matching_t both = {every_mouse[0], product(5, 6)[0]};
    const matching_t x = {{{CFSTR("UsagePage"), 1}, {CFSTR("Usage"), 48}}};
    const matching_t keys = {{{CFSTR("UsagePage"), 7}}};
    const auto &usual = simulator::keyboard_pairs, &paged = simulator::key_page_pairs;
    const struct {
        const usages_t& keyboard;
        bool combined;
        matching_t devices, elements;
        std::string expected;
    } cases[] = {
        {usual, false, every_mouse, anything, "111c111c9111c"},
        {usual, false, every_mouse, x, "111"},
        {usual, false, every_mouse, {}, ""},
        {usual, false, {}, anything, ""},
        {usual, false, product(5, 6), anything, ""},
        {paged, false, product(5, 6), anything, "7"},
        {paged, false, product(5, 7), anything, ""},
        {paged, false, product(6, 6), anything, ""},
        {usual, true, every_mouse, keys, "7"},
        {paged, true, both, keys, "77"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        const auto device = simulator::connect({.name = "mouse",
                                                .vendor_id = 5,
                                                .product_id = 6,
                                                .keyboard = one.keyboard,
                                                .combined = one.combined});
        const recorder_t recorder(log, one.devices);
        recorder.match(&IOHIDManagerSetInputValueMatchingMultiple, one.elements);
        ASSERT_EQ(recorder.open(), kIOReturnSuccess);
        simulator::move(device, 1, 1);
        simulator::press(device, 3);
        simulator::scroll(device, 1, 1);
        simulator::press_key(device, 123);
        simulator::repeat_key(device, 123);
        EXPECT_EQ(called(), one.expected);
        simulator::disconnect(device);
        called();
    }
}

TEST_F(hid_manager_test, the_permission_counts_when_a_guarded_device_is_opened_and_never_again) {
    const device_id_t free = connect({{0xC, 1}});
    simulator::revoke(permission_e::input_monitoring);
    for (const usages_t& pairs : {usages_t{{1, 2}}, {{1, 6}}, {{0xD, 5}}}) {
        const recorder_t opens_what_comes(log, anything);
        EXPECT_EQ(opens_what_comes.open(), kIOReturnSuccess);
        const device_id_t guarded = connect(pairs);
        const recorder_t recorder(log, anything);
        EXPECT_EQ(recorder.open(), kIOReturnNotPermitted);
        simulator::grant(permission_e::input_monitoring);
        EXPECT_EQ(recorder.open(), kIOReturnSuccess) << "it counts as open";
        called();
        EXPECT_EQ(moved(guarded), "111c") << "from the first alone";
        EXPECT_EQ(moved(free), "111c111c");
        simulator::revoke(permission_e::input_monitoring);
        EXPECT_EQ(moved(guarded), "111c");
        EXPECT_EQ(recorder.close(), kIOReturnNotOpen) << "one device is not";
        simulator::disconnect(guarded);
        EXPECT_EQ(called(), "x");
    }
}

TEST_F(hid_manager_test, an_undecided_permission_is_asked_for_and_waited_for) {
    const device_id_t mouse = connect();
    for (const bool grants : {true, false}) {
        simulator::leave_input_monitoring_undecided();
        std::thread user([grants] {
            for (int i = 0; i < 10000 && !simulator::user_is_asked(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            (grants ? simulator::grant : simulator::revoke)(permission_e::input_monitoring);
        });
        const recorder_t recorder(log);
        EXPECT_EQ(recorder.open(), grants ? kIOReturnSuccess : kIOReturnNotPermitted);
        user.join();
        EXPECT_EQ(moved(mouse), grants ? "111c" : "");
    }
}

TEST_F(hid_manager_test, a_seized_device_is_open_but_silent_until_it_is_let_go) {
    const device_id_t seized = connect(), other = connect();
    simulator::seize(seized);
    const recorder_t recorder(log);
    EXPECT_EQ(recorder.open(), kIOReturnExclusiveAccess);
    simulator::press(seized, 0);
    EXPECT_EQ(called(), "");
    EXPECT_TRUE(simulator::events().empty());
    EXPECT_EQ(moved(other), "111c");
    simulator::let_go(seized);
    EXPECT_EQ(moved(seized), "111c");
}

TEST_F(hid_manager_test, one_wake_up_delivers_all_that_waits_also_what_waited_unscheduled) {
    const device_id_t mouse = connect();
    const recorder_t recorder(log);
    EXPECT_EQ(recorder.close(), kIOReturnNotOpen) << "which unschedules it";
    recorder.schedule();
    ASSERT_EQ(recorder.open(), kIOReturnSuccess);
    simulator::move(mouse, 1, 0);
    simulator::move(mouse, 1, 0);
    simulator::shut_down();
    recorder.unschedule();
    EXPECT_EQ(moved(mouse), "") << "lost";
    recorder.schedule();
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true);
    EXPECT_EQ(std::exchange(log, {}), "111c111c");
    EXPECT_EQ(moved(mouse), "111c");
}

TEST_F(hid_manager_test, arrivals_and_removals_are_told_until_it_is_unscheduled) {
    const device_id_t first = connect(), second = connect();
    const recorder_t recorder(log);
    simulator::disconnect(first);
    EXPECT_EQ(called(), "x") << "not open yet";
    ASSERT_EQ(recorder.open(), kIOReturnSuccess);
    const device_id_t third = connect();
    called();
    EXPECT_EQ(moved(third), "111c");
    simulator::disconnect(third);
    EXPECT_EQ(called(), "x");
    EXPECT_DEATH(IOHIDDeviceGetProperty(recorder.last_device, CFSTR("VendorID")), "disconnected");
    recorder.unschedule();
    const device_id_t fourth = connect();
    recorder.schedule();
    EXPECT_EQ(moved(fourth) + moved(second), "111c");
    simulator::disconnect(second);
    EXPECT_EQ(called() + moved(connect()), "") << "lost for good";
}

TEST_F(hid_manager_test, a_manager_may_be_released_while_values_are_under_way) {
    std::thread hand([mouse = connect()] {
        for (int i = 0; i < 200; ++i) {
            simulator::move(mouse, 1, 1);
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(recorder_t(log).open(), kIOReturnSuccess);
    }
    hand.join();
    called();
}

TEST_F(hid_manager_test, mistakes_end_the_program) {
    const recorder_t recorder(log);
    EXPECT_DEATH(recorder.schedule(), "IOHIDManagerScheduleWithRunLoop: the manager is scheduled");
    EXPECT_DEATH(recorder_t(log, {{{CFSTR("Transport"), 1}}}), "not modelled: key Transport");
    EXPECT_DEATH((recorder.open(), recorder.close(), recorder.open()), "Open: not modelled");
}

}  // namespace
