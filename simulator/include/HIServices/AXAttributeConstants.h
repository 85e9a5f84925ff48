#pragma once

#include <CoreFoundation/CFString.h>

#define kAXWindowAttribute CFSTR("AXWindow")
#define kAXMinimizedAttribute CFSTR("AXMinimized")
#define kAXCloseButtonAttribute CFSTR("AXCloseButton")
