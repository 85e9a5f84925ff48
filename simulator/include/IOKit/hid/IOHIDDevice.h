#pragma once

#include <IOKit/hid/IOHIDBase.h>

extern "C" {

CFTypeRef IOHIDDeviceGetProperty(IOHIDDeviceRef device, CFStringRef key);

}  // extern "C"
