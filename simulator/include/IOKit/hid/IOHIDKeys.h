#pragma once

#include <IOKit/IOTypes.h>

// Properties of a device, and keys of a device matching dictionary.
#define kIOHIDVendorIDKey "VendorID"
#define kIOHIDProductIDKey "ProductID"
#define kIOHIDDeviceUsagePageKey "DeviceUsagePage"
#define kIOHIDDeviceUsageKey "DeviceUsage"

// Keys of an element matching dictionary.
#define kIOHIDElementUsagePageKey "UsagePage"
#define kIOHIDElementUsageKey "Usage"

enum : std::uint32_t {
    kIOHIDOptionsTypeNone = 0,
};
using IOHIDOptionsType = std::uint32_t;
