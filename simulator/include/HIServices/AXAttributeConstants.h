#pragma once

#include <CoreFoundation/CFString.h>

#define kAXRoleAttribute CFSTR("AXRole")
#define kAXParentAttribute CFSTR("AXParent")
#define kAXWindowAttribute CFSTR("AXWindow")
#define kAXMinimizedAttribute CFSTR("AXMinimized")
#define kAXMinimizeButtonAttribute CFSTR("AXMinimizeButton")
#define kAXZoomButtonAttribute CFSTR("AXZoomButton")
#define kAXCloseButtonAttribute CFSTR("AXCloseButton")
