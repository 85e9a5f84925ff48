#pragma once

#include <CoreGraphics/CGDirectDisplay.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Displays as the desktop has them. There is none at the start. Any thread.
namespace simulator {

// By what the registry knows which display it has there; none: no such property.
struct display_numbers_t {
    std::optional<std::uint32_t> vendor;   // "DisplayVendorID"
    std::optional<std::uint32_t> product;  // "DisplayProductID"
};

// What the registry keeps of a display: an entry "IODisplayConnect" for its connection, and below
// that the display itself.
struct display_service_t {
    display_numbers_t below{};               // of the display, as is usual
    display_numbers_t entry{};               // of the entry
    std::optional<float> brightness = 0.5F;  // 0 to 1; none: no such parameter
};

struct display_t {
    std::string name;
    std::uint32_t vendor = 0;  // as Core Graphics gives them
    std::uint32_t model = 0;
    std::optional<display_service_t> service;  // none: no entry, as on newer processors
};

// A display that has the same numbers in the registry, below its entry.
display_t usual_display(const std::string& name, std::uint32_t vendor, std::uint32_t model);

// The first display that is connected becomes the main one. The registry lists services in the
// order of connection. Ids are never used again.
CGDirectDisplayID connect_display(const display_t& display);
// When it was the main display, the one that was connected first takes its place, if there is one.
// Handles of its service stay valid, its parameters cannot be read or written any more.
void disconnect_display(CGDirectDisplayID display);
void make_main_display(CGDirectDisplayID display);

// The display as it is now; none when it is gone.
std::optional<display_t> display(CGDirectDisplayID display);

struct brightness_write_t {
    CGDirectDisplayID display = 0;
    float value = 0;  // as the program gave it
    bool accepted = false;
};

// What the program has written so far, in order.
std::vector<brightness_write_t> brightness_writes();

}  // namespace simulator
