#include <gtest/gtest.h>

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/graphics/IOGraphicsLib.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "control/displays.h"
#include "control/objects.h"

namespace {

using simulator::connect_display;
using simulator::objects_alive;
using simulator::usual_display;
using lines_t = std::vector<std::string>;

io_iterator_t find_services() {
    io_iterator_t services = 1;
    EXPECT_EQ(IOServiceGetMatchingServices(kIOMainPortDefault,
                                           IOServiceMatching("IODisplayConnect"), &services),
              KERN_SUCCESS);
    return services;
}

io_service_t first_service() {
    const io_iterator_t services = find_services();
    const io_service_t first = IOIteratorNext(services);
    IOObjectRelease(services);
    return first;
}

std::optional<std::int32_t> number(io_service_t service, CFStringRef key) {
    const CFTypeRef value = IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::int32_t number = 0;
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &number) !=
                0);
    CFRelease(value);
    return number;
}

class displays : public testing::Test {
  protected:
    ~displays() override { EXPECT_EQ(objects_alive(), lines_t{}); }
};

TEST_F(displays, core_graphics_names_the_main_display_and_its_maker) {
    EXPECT_EQ(CGMainDisplayID(), kCGNullDirectDisplay);
    const auto first = connect_display(usual_display("Built-in", 0x610, 0xA030));
    const auto second = connect_display(usual_display("Desk", 0xFFFF0001, 2));
    EXPECT_EQ(CGMainDisplayID(), first);
    simulator::make_main_display(second);
    EXPECT_EQ(CGMainDisplayID(), second);
    EXPECT_EQ(CGDisplayVendorNumber(second), 0xFFFF0001U);
    EXPECT_EQ(CGDisplayModelNumber(second), 2U);
    simulator::disconnect_display(second);
    EXPECT_EQ(CGMainDisplayID(), first);
    EXPECT_EQ(CGDisplayVendorNumber(second), 0xFFFFFFFFU);
}

TEST_F(displays, the_registry_lists_services_in_order_with_their_numbers) {
    EXPECT_EQ(find_services(), IO_OBJECT_NULL);
    connect_display({"Projector", 1, 2, std::nullopt});
    EXPECT_EQ(find_services(), IO_OBJECT_NULL);
    connect_display(usual_display("Twin", 0xFFFF0001, 2));
    connect_display({"No numbers", 5, 6, simulator::display_service_t{}});

    const io_iterator_t services = find_services();
    const io_service_t twin = IOIteratorNext(services);
    const io_service_t unnumbered = IOIteratorNext(services);
    EXPECT_EQ(IOIteratorNext(services), IO_OBJECT_NULL);
    EXPECT_EQ(number(twin, CFSTR(kDisplayVendorID)), static_cast<std::int32_t>(0xFFFF0001));
    EXPECT_EQ(number(twin, CFSTR(kDisplayProductID)), 2);
    EXPECT_EQ(number(unnumbered, CFSTR(kDisplayVendorID)), std::nullopt);
    for (const io_object_t handle : {services, twin, unnumbered}) {
        IOObjectRelease(handle);
    }
}

TEST_F(displays, brightness_is_read_and_written_unless_the_display_refuses) {
    auto state = usual_display("Built-in", 1, 2);
    const auto open = connect_display(state);
    const auto service = first_service();
    float brightness = 0;
    EXPECT_EQ(IODisplayGetFloatParameter(service, 0, CFSTR("brightness"), &brightness),
              kIOReturnSuccess);
    EXPECT_EQ(brightness, 0.5F);
    EXPECT_EQ(IODisplaySetFloatParameter(service, 0, CFSTR("brightness"), 0.75F), kIOReturnSuccess);
    EXPECT_EQ(simulator::display(open)->service->brightness, 0.75F);

    simulator::disconnect_display(open);
    EXPECT_NE(IODisplayGetFloatParameter(service, 0, CFSTR("brightness"), &brightness),
              kIOReturnSuccess);
    IOObjectRelease(service);

    state.service->brightness_writable = false;
    const auto fixed = connect_display(state);
    const auto fixed_service = first_service();
    EXPECT_NE(IODisplaySetFloatParameter(fixed_service, 0, CFSTR("brightness"), 0.25F),
              kIOReturnSuccess);
    IOObjectRelease(fixed_service);
    simulator::disconnect_display(fixed);

    state.service->brightness = std::nullopt;
    connect_display(state);
    const auto dark = first_service();
    EXPECT_NE(IODisplayGetFloatParameter(dark, 0, CFSTR("brightness"), &brightness),
              kIOReturnSuccess);
    IOObjectRelease(dark);

    const auto writes = simulator::brightness_writes();
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_TRUE(writes[0].display == open && writes[0].value == 0.75F && writes[0].accepted);
    EXPECT_TRUE(writes[1].display == fixed && writes[1].value == 0.25F && !writes[1].accepted);
}

TEST_F(displays, handles_are_counted_and_listed) {
    connect_display(usual_display("Built-in", 1, 2));
    const auto service = first_service();
    EXPECT_EQ(first_service(), service);
    EXPECT_EQ(objects_alive(),
              lines_t{"IOKit handle of the service of Built-in from IOIteratorNext, retained 2"});
    IOObjectRelease(service);
    IOObjectRelease(service);
    EXPECT_EQ(objects_alive(), lines_t{});
    EXPECT_DEATH(IOObjectRelease(service), "IOObjectRelease: the handle is dead");
    EXPECT_DEATH(IOObjectRelease(IO_OBJECT_NULL), "IOObjectRelease: the handle is null");
    EXPECT_DEATH(IOIteratorNext(service), "IOIteratorNext: the handle is dead");
    EXPECT_DEATH(IOIteratorNext(first_service()), "IOIteratorNext: the handle is of something");
}

TEST_F(displays, the_matching_dictionary_is_used_up_also_by_a_call_that_fails) {
    connect_display(usual_display("Built-in", 1, 2));
    simulator::fail_next("IOServiceGetMatchingServices");
    io_iterator_t services = IO_OBJECT_NULL;
    EXPECT_NE(IOServiceGetMatchingServices(kIOMainPortDefault,
                                           IOServiceMatching("IODisplayConnect"), &services),
              KERN_SUCCESS);
    EXPECT_EQ(objects_alive(), lines_t{});
    const auto matching = IOServiceMatching("IODisplayConnect");
    EXPECT_EQ(objects_alive(), lines_t{"CFDictionary from IOServiceMatching, retained 1"});
    IOServiceGetMatchingServices(kIOMainPortDefault, matching, &services);
    IOObjectRelease(services);
    EXPECT_DEATH(CFRelease(matching), "CFRelease");
    EXPECT_DEATH(IOServiceMatching("IOHIDDevice"), "IOServiceMatching: not modelled");
}

TEST_F(displays, displays_come_and_go_while_the_program_looks_them_up) {
    std::atomic<bool> stop = false;
    std::thread hand([&stop] {
        while (!stop) {
            simulator::disconnect_display(connect_display(usual_display("Twin", 1, 2)));
        }
    });
    for (int round = 0; round < 1000; ++round) {
        if (const io_iterator_t services = find_services(); services != IO_OBJECT_NULL) {
            const io_service_t service = IOIteratorNext(services);
            EXPECT_EQ(number(service, CFSTR(kDisplayVendorID)), 1);
            IODisplaySetFloatParameter(service, 0, CFSTR("brightness"), 0.5F);
            IOObjectRelease(service);
            IOObjectRelease(services);
        }
    }
    stop = true;
    hand.join();
}

}  // namespace
