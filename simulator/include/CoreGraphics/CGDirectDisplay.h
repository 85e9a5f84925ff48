#pragma once

#include <CoreFoundation/CFBase.h>

using CGDirectDisplayID = std::uint32_t;

#define kCGNullDirectDisplay (CGDirectDisplayID{0})

extern "C" {

// The display with the menu bar; kCGNullDirectDisplay when no display is connected.
CGDirectDisplayID CGMainDisplayID();

}  // extern "C"
