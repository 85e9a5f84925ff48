#pragma once

#include <IOKit/IOKitLib.h>
#include <IOKit/graphics/IOGraphicsTypes.h>

extern "C" {

// A parameter of a display by its name, from 0 to 1. The service is an "IODisplayConnect" one.
IOReturn IODisplayGetFloatParameter(io_service_t service, IOOptionBits options, CFStringRef name,
                                    float* value);
IOReturn IODisplaySetFloatParameter(io_service_t service, IOOptionBits options, CFStringRef name,
                                    float value);

}  // extern "C"
