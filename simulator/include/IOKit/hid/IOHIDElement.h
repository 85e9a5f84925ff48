#pragma once

#include <IOKit/hid/IOHIDBase.h>

extern "C" {

IOHIDDeviceRef IOHIDElementGetDevice(IOHIDElementRef element);
std::uint32_t IOHIDElementGetUsagePage(IOHIDElementRef element);

}  // extern "C"
