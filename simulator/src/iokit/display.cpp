#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CGDisplayConfiguration.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/graphics/IOGraphicsLib.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <mutex>
#include <utility>

#include "control/displays.h"
#include "core/calls.h"
#include "core/failure.h"
#include "core_foundation/values.h"
#include "iokit/io_objects.h"

namespace simulator {
namespace {

constexpr char display_class[] = "IODisplayConnect";
constexpr CGDirectDisplayID first_display_id = 1;
constexpr std::uint32_t no_such_display = 0xFFFFFFFF;

// A display from its connection on. It stays behind the handles of its service when it is gone.
class connected_t final : public io_entry_t {
  public:
    connected_t(CGDirectDisplayID number, const display_t& display) : id(number), state(display) {}
    std::string description() const override { return "the service of " + state.name; }

    const CGDirectDisplayID id;
    display_t state;  // but for its name, under the mutex
};

class iterator_t final : public io_entry_t {
  public:
    std::string description() const override { return "an iterator"; }

    std::vector<std::shared_ptr<connected_t>> services;
    std::size_t next = 0;
};

struct displays_t {
    std::mutex mutex;
    std::vector<std::shared_ptr<connected_t>> connected;
    CGDirectDisplayID next_id = first_display_id;
    CGDirectDisplayID main = kCGNullDirectDisplay;
    std::vector<brightness_write_t> writes;
};

displays_t& displays() {
    static auto* const state = new displays_t;  // outlives every static object of the program
    return *state;
}

// Null when there is no such display. The mutex is held, here and below.
std::shared_ptr<connected_t> find_display(CGDirectDisplayID id) {
    for (const auto& one : displays().connected) {
        if (one->id == id) {
            return one;
        }
    }
    return nullptr;
}

void expect_display(CGDirectDisplayID id, const char* function) {
    if (find_display(id) == nullptr) {
        misuse(function, "there is no such display");
    }
}

void expect_display_class(CFDictionaryRef matching, const char* function) {
    const auto& dictionary = object_of<dictionary_t>(matching, function);
    const CFTypeRef wanted = dictionary.find("IOProviderClass");
    if (dictionary.items.size() != 1 || wanted == nullptr ||
        object_of<string_t>(wanted, function).text != display_class) {
        not_modelled(function, "matching by anything but the class IODisplayConnect");
    }
}

// The service that a parameter of the given name is asked of.
std::shared_ptr<connected_t> service_with_parameter(io_service_t service, IOOptionBits options,
                                                    CFStringRef name, const char* function) {
    if (options != 0 || object_of<string_t>(name, function).text != kIODisplayBrightnessKey) {
        not_modelled(function, "options, or another parameter than brightness");
    }
    return io_entry_of<connected_t>(service, function);
}

using numbers_t = display_numbers_t display_service_t::*;

// The number of the first of the places that has it, for the caller to own; null where none has.
CFTypeRef number_of(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                    std::initializer_list<numbers_t> places, const char* function) {
    expect_default_allocator(allocator, function);
    const std::string& name = object_of<string_t>(key, function).text;
    if (name != kDisplayVendorID && name != kDisplayProductID) {
        not_modelled(function, "another property than a display's vendor and product");
    }
    const auto service = io_entry_of<connected_t>(entry, function);
    if (shall_fail(function)) {
        return nullptr;
    }
    const auto number =
        name == kDisplayVendorID ? &display_numbers_t::vendor : &display_numbers_t::product;
    const std::lock_guard lock(displays().mutex);
    for (const numbers_t place : places) {
        if (const auto value = (*service->state.service).*place.*number) {
            // The registry's numbers of 32 bits come out signed.
            return publish(std::make_unique<number_t>(static_cast<std::int32_t>(*value)), function);
        }
    }
    return nullptr;
}

IOReturn answer_to_write(const connected_t& display, bool shall_fail) {
    const display_service_t& known = *display.state.service;
    if (!known.brightness) {
        return kIOReturnUnsupported;
    }
    return shall_fail ? kIOReturnNotReady : kIOReturnSuccess;
}

std::uint32_t identity(CGDirectDisplayID id, std::uint32_t display_t::*number,
                       const char* function) {
    const call_t call(function);
    if (shall_fail(function)) {
        return no_such_display;
    }
    const std::lock_guard lock(displays().mutex);
    const auto found = find_display(id);
    return found == nullptr ? no_such_display : found->state.*number;
}

}  // namespace

display_t usual_display(const std::string& name, std::uint32_t vendor, std::uint32_t model) {
    display_service_t service;
    service.below = {vendor, model};
    return {name, vendor, model, service};
}

CGDirectDisplayID connect_display(const display_t& display) {
    const std::lock_guard lock(displays().mutex);
    const CGDirectDisplayID id = displays().next_id++;
    displays().connected.push_back(std::make_shared<connected_t>(id, display));
    if (displays().main == kCGNullDirectDisplay) {
        displays().main = id;
    }
    return id;
}

void disconnect_display(CGDirectDisplayID display) {
    const std::lock_guard lock(displays().mutex);
    expect_display(display, "disconnect_display");
    auto& connected = displays().connected;
    if (auto& service = find_display(display)->state.service) {
        // What is below the entry goes first, and the entry when nobody holds it any more.
        service->below = {};
        service->brightness.reset();
    }
    std::erase_if(connected, [&](const auto& one) { return one->id == display; });
    if (displays().main == display) {
        displays().main = connected.empty() ? kCGNullDirectDisplay : connected.front()->id;
    }
}

void make_main_display(CGDirectDisplayID display) {
    const std::lock_guard lock(displays().mutex);
    expect_display(display, "make_main_display");
    displays().main = display;
}

std::optional<display_t> display(CGDirectDisplayID display) {
    const std::lock_guard lock(displays().mutex);
    const auto found = find_display(display);
    return found == nullptr ? std::nullopt : std::optional(found->state);
}

std::vector<brightness_write_t> brightness_writes() {
    const std::lock_guard lock(displays().mutex);
    return displays().writes;
}

}  // namespace simulator

using namespace simulator;

extern "C" {

const mach_port_t kIOMainPortDefault = 0;

CGDirectDisplayID CGMainDisplayID() {
    const call_t call("CGMainDisplayID");
    if (shall_fail("CGMainDisplayID")) {
        return kCGNullDirectDisplay;
    }
    const std::lock_guard lock(displays().mutex);
    return displays().main;
}

std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID display) {
    return identity(display, &display_t::vendor, "CGDisplayVendorNumber");
}

std::uint32_t CGDisplayModelNumber(CGDirectDisplayID display) {
    return identity(display, &display_t::model, "CGDisplayModelNumber");
}

CFMutableDictionaryRef IOServiceMatching(const char* class_name) {
    constexpr auto function = "IOServiceMatching";
    const call_t call(function);
    if (class_name == nullptr) {
        misuse(function, "the name is null");
    }
    if (std::string_view(class_name) != display_class) {
        not_modelled(function, class_name);
    }
    if (shall_fail(function)) {
        return nullptr;
    }
    auto dictionary = std::make_unique<dictionary_t>();
    dictionary->is_mutable = true;
    dictionary->items.emplace_back(retained_t<string_t>(CFSTR("IOProviderClass")),
                                   retained_t<object_t>(CFSTR("IODisplayConnect")));
    const CFTypeRef reference = publish(std::move(dictionary), function);
    return static_cast<CFMutableDictionaryRef>(const_cast<void*>(reference));
}

kern_return_t IOServiceGetMatchingServices(mach_port_t main_port, CFDictionaryRef matching,
                                           io_iterator_t* existing) {
    constexpr auto function = "IOServiceGetMatchingServices";
    const call_t call(function);
    if (main_port != kIOMainPortDefault) {
        not_modelled(function, "another port than kIOMainPortDefault");
    }
    if (existing == nullptr) {
        misuse(function, "there is no place for the iterator");
    }
    expect_display_class(matching, function);
    release(matching, function);
    if (shall_fail(function)) {
        return kIOReturnNoResources;
    }
    auto iterator = std::make_shared<iterator_t>();
    {
        const std::lock_guard lock(displays().mutex);
        std::copy_if(displays().connected.begin(), displays().connected.end(),
                     std::back_inserter(iterator->services),
                     [](const auto& one) { return one->state.service.has_value(); });
    }
    *existing = iterator->services.empty() ? IO_OBJECT_NULL : hand_out(iterator, function);
    return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    constexpr auto function = "IOIteratorNext";
    const call_t call(function);
    const auto entry = io_entry_of<iterator_t>(iterator, function);
    if (shall_fail(function)) {
        return IO_OBJECT_NULL;
    }
    std::shared_ptr<connected_t> service;
    {
        const std::lock_guard lock(displays().mutex);
        if (entry->next == entry->services.size()) {
            return IO_OBJECT_NULL;
        }
        service = entry->services[entry->next++];
    }
    return hand_out(service, function);
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options) {
    constexpr auto function = "IORegistryEntryCreateCFProperty";
    const call_t call(function);
    if (options != 0) {
        not_modelled(function, "options");
    }
    return number_of(entry, key, allocator, {&display_service_t::entry}, function);
}

CFTypeRef IORegistryEntrySearchCFProperty(io_registry_entry_t entry, const io_name_t plane,
                                          CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options) {
    constexpr auto function = "IORegistryEntrySearchCFProperty";
    const call_t call(function);
    if (plane == nullptr || std::string_view(plane) != kIOServicePlane ||
        options != kIORegistryIterateRecursively) {
        not_modelled(function, "other than all that is below in the service plane");
    }
    return number_of(entry, key, allocator, {&display_service_t::entry, &display_service_t::below},
                     function);
}

IOReturn IODisplayGetFloatParameter(io_service_t service, IOOptionBits options, CFStringRef name,
                                    float* value) {
    constexpr auto function = "IODisplayGetFloatParameter";
    const call_t call(function);
    const auto display = service_with_parameter(service, options, name, function);
    if (value == nullptr) {
        misuse(function, "there is no place for the value");
    }
    const std::lock_guard lock(displays().mutex);
    if (shall_fail(function) || !display->state.service->brightness) {
        return kIOReturnUnsupported;
    }
    *value = *display->state.service->brightness;
    return kIOReturnSuccess;
}

IOReturn IODisplaySetFloatParameter(io_service_t service, IOOptionBits options, CFStringRef name,
                                    float value) {
    constexpr auto function = "IODisplaySetFloatParameter";
    const call_t call(function);
    const auto display = service_with_parameter(service, options, name, function);
    if (std::isnan(value)) {
        not_modelled(function, "a value that is not a number");
    }
    const std::lock_guard lock(displays().mutex);
    const IOReturn result = answer_to_write(*display, shall_fail(function));
    displays().writes.push_back({display->id, value, result == kIOReturnSuccess});
    if (result == kIOReturnSuccess) {
        display->state.service->brightness = std::clamp(value, 0.0F, 1.0F);
    }
    return result;
}

}  // extern "C"
