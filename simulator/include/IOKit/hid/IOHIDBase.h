#pragma once

#include <IOKit/IOTypes.h>
#include <IOKit/hid/IOHIDKeys.h>

using IOHIDDeviceRef = struct __IOHIDDevice*;
using IOHIDElementRef = struct __IOHIDElement*;
using IOHIDValueRef = struct __IOHIDValue*;

extern "C" {

// Called on the run loop that the manager is scheduled with. The `sender` of a value is its device,
// that of a removal the manager. The value and the device are lent for the call.
using IOHIDValueCallback = void (*)(void* context, IOReturn result, void* sender,
                                    IOHIDValueRef value);
using IOHIDDeviceCallback = void (*)(void* context, IOReturn result, void* sender,
                                     IOHIDDeviceRef device);

}  // extern "C"
