#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDManager.h>

#include "simulator/desktop_test.h"

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
    explicit recorder_t(std::string& notes, const matching_t& devices = every_mouse,
                        const matching_t& elements = anything)
        : log(notes) {
        const auto note_value = [](void* self, IOReturn, void* sender, IOHIDValueRef value) {
            auto& recorder = *static_cast<recorder_t*>(self);
            const IOHIDElementRef element = IOHIDValueGetElement(value);
            recorder.last_device = IOHIDElementGetDevice(element);
            EXPECT_EQ(sender, recorder.last_device);
            recorder.log += "0123456789abcdef"[IOHIDElementGetUsagePage(element)];
        };
        const auto note_removal = [](void* self, IOReturn, void* sender, IOHIDDeviceRef) {
            EXPECT_EQ(sender, static_cast<recorder_t*>(self)->manager);
            static_cast<recorder_t*>(self)->log += "x";
        };
        IOHIDManagerRegisterInputValueCallback(manager, note_value, this);
        IOHIDManagerRegisterDeviceRemovalCallback(manager, note_removal, this);
        match(&IOHIDManagerSetDeviceMatchingMultiple, devices);
        match(&IOHIDManagerSetInputValueMatchingMultiple, elements);
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
    IOReturn open() const { return IOHIDManagerOpen(manager, 0); }
    IOReturn close() const { return IOHIDManagerClose(manager, 0); }

    std::string& log;
    const IOHIDManagerRef manager = IOHIDManagerCreate(nullptr, 0);
    IOHIDDeviceRef last_device = nullptr;
};

class hid_manager_test : public desktop_test {
  protected:
    static device_id_t connect(const usages_t& pointer = simulator::mouse_pairs) {
        return simulator::connect({.name = "device", .pointer = pointer});
    }
    // What the managers have been called with since the last time.
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
    const auto keyboard_of = [](std::int32_t product) {
        return matching_t{
            {{CFSTR("VendorID"), 5}, {CFSTR("ProductID"), product}, {CFSTR("DeviceUsagePage"), 7}}};
    };
    const std::tuple<bool, matching_t, matching_t, std::string> cases[] = {
        {false, every_mouse, anything, "111c111c9111c"},
        {false, every_mouse, {{{CFSTR("UsagePage"), 1}, {CFSTR("Usage"), 48}}}, "111"},
        {false, keyboard_of(6), anything, "7"},
        {false, keyboard_of(7), anything, ""},
        {true, {every_mouse[0], keyboard_of(6)[0]}, {{{CFSTR("UsagePage"), 7}}}, "77"},
    };
    simulator::device_description_t description{
        .name = "mouse", .vendor_id = 5, .product_id = 6, .keyboard = simulator::key_page_pairs};
    for (const auto& [combined, devices, elements, expected] : cases) {
        description.combined = combined;
        const auto device = simulator::connect(description);
        const recorder_t recorder(log, devices, elements);
        ASSERT_EQ(recorder.open(), kIOReturnSuccess);
        simulator::move(device, 1, 1);
        simulator::press(device, 3);
        simulator::scroll(device, 1, 1);
        simulator::press_key(device, 123);
        simulator::repeat_key(device, 123);
        EXPECT_EQ(called(), expected);
        simulator::disconnect(device);
        called();
    }
    EXPECT_DEATH(recorder_t(log, {{{CFSTR("Transport"), 1}}}), "not modelled: key Transport");
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

TEST_F(hid_manager_test, values_wait_for_the_run_loop_and_a_seized_device_sends_none) {
    const device_id_t gone = connect(), mouse = connect(), other = connect();
    simulator::seize(mouse);
    const recorder_t recorder(log);
    simulator::disconnect(gone);
    EXPECT_EQ(called(), "x") << "not open yet";
    EXPECT_DEATH((recorder.open(), recorder.close(), recorder.open()), "Open: not modelled");
    EXPECT_DEATH(recorder.schedule(), "IOHIDManagerScheduleWithRunLoop: the manager is scheduled");
    EXPECT_EQ(recorder.open(), kIOReturnExclusiveAccess);
    EXPECT_EQ(moved(mouse) + moved(other), "111c");
    simulator::let_go(mouse);
    simulator::move(mouse, 1, 0);
    simulator::move(mouse, 1, 0);
    simulator::shut_down();
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true);
    EXPECT_EQ(std::exchange(log, {}), "111c111c") << "in one wake-up";
    simulator::disconnect(mouse);
    EXPECT_EQ(called(), "x");
    EXPECT_DEATH(IOHIDDeviceGetProperty(recorder.last_device, CFSTR("VendorID")), "disconnected");
    simulator::move(other, 1, 0);
    simulator::shut_down();
    IOHIDManagerUnscheduleFromRunLoop(recorder.manager, CFRunLoopGetCurrent(),
                                      kCFRunLoopDefaultMode);
    simulator::disconnect(other);
    EXPECT_EQ(called(), "") << "of nothing it is told any more";
    EXPECT_EQ(recorder.close(), kIOReturnSuccess);
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
}

}  // namespace
