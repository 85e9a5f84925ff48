#pragma once

#include <CoreGraphics/CGDirectDisplay.h>

extern "C" {

// Who made the monitor of a display and which one it is; 0xFFFFFFFF when there is no such display.
std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID display);
std::uint32_t CGDisplayModelNumber(CGDirectDisplayID display);

}  // extern "C"
