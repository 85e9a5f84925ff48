#include <gtest/gtest.h>

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/graphics/IOGraphicsLib.h>

#include <atomic>
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

class displays : public testing::Test {
  protected:
    ~displays() override { EXPECT_EQ(objects_alive(), lines_t{}); }
};

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
            if (const CFTypeRef vendor = IORegistryEntrySearchCFProperty(
                    service, kIOServicePlane, CFSTR(kDisplayVendorID), kCFAllocatorDefault,
                    kIORegistryIterateRecursively)) {
                CFRelease(vendor);
            }
            IODisplaySetFloatParameter(service, 0, CFSTR("brightness"), 0.5F);
            IOObjectRelease(service);
            IOObjectRelease(services);
        }
    }
    stop = true;
    hand.join();
}

}  // namespace
