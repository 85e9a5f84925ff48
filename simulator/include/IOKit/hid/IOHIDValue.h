#pragma once

#include <IOKit/hid/IOHIDBase.h>

extern "C" {

IOHIDElementRef IOHIDValueGetElement(IOHIDValueRef value);

}  // extern "C"
