#pragma once

#include <IOKit/IOTypes.h>

// Names of a display's registry properties (numbers) and of its float parameter.
#define kDisplayVendorID "DisplayVendorID"
#define kDisplayProductID "DisplayProductID"
#define kIODisplayBrightnessKey "brightness"
