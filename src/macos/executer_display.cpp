#include "macos/executer_display.h"

#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/graphics/IOGraphicsLib.h>

#include <cstdint>

#include "macos/cpf.h"
#include "macos/executer_level.h"
#include "macos/io_handle.h"

namespace {

// One of the two numbers that say which display a service is for; 0 when they cannot be found. The
// service stands for the connection. Where it has none itself, the display that is connected, which
// has an entry of its own below, has them.
std::uint32_t display_number(io_service_t service, CFStringRef name) {
    auto value = cpf_t<CFTypeRef>::adopt(
        IORegistryEntryCreateCFProperty(service, name, kCFAllocatorDefault, 0));
    if (!value) {
        value = cpf_t<CFTypeRef>::adopt(IORegistryEntrySearchCFProperty(
            service, kIOServicePlane, name, kCFAllocatorDefault, kIORegistryIterateRecursively));
    }
    std::int32_t number = 0;
    if (value && CFGetTypeID(value.get()) == CFNumberGetTypeID()) {
        CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberSInt32Type, &number);
    }
    return static_cast<std::uint32_t>(number);
}

io_handle_t main_display_service() {
    return io_handle_t::adopt(service_for_display(CGMainDisplayID()));
}

}  // namespace

io_service_t service_for_display(unsigned int display) {
    auto matching = cpf_t<CFMutableDictionaryRef>::adopt(IOServiceMatching("IODisplayConnect"));
    if (!matching) {
        return IO_OBJECT_NULL;
    }
    // The call takes the dictionary over, also when it fails. When nothing matches it may succeed
    // without an iterator.
    io_handle_t services;
    if (IOServiceGetMatchingServices(kIOMainPortDefault, matching.release(), services.out()) !=
            KERN_SUCCESS ||
        !services) {
        return IO_OBJECT_NULL;
    }
    const std::uint32_t vendor = CGDisplayVendorNumber(display);
    const std::uint32_t model = CGDisplayModelNumber(display);
    while (auto service = io_handle_t::adopt(IOIteratorNext(services.get()))) {
        const std::uint32_t service_vendor =
            display_number(service.get(), CFSTR("DisplayVendorID"));
        const std::uint32_t service_model =
            display_number(service.get(), CFSTR("DisplayProductID"));
        if (service_vendor == vendor && service_model == model) {
            return service.release();
        }
    }
    return IO_OBJECT_NULL;
}

void step_main_display_brightness(float step) {
    auto service = main_display_service();
    if (!service) {
        return;
    }
    float brightness = 0.0F;
    if (IODisplayGetFloatParameter(service.get(), 0, CFSTR("brightness"), &brightness) !=
        kIOReturnSuccess) {
        return;
    }
    // Looked up a second time on purpose: a display answers slowly, and by now it may have been
    // unplugged or another may be the main one. The write goes to the display that is main when it
    // is made.
    service.reset();
    service = main_display_service();
    if (!service) {
        return;
    }
    // A display that refuses stays as it is, and nobody is told.
    IODisplaySetFloatParameter(service.get(), 0, CFSTR("brightness"),
                               stepped_level(brightness, step));
}
