#pragma once

#include <CoreFoundation/CFString.h>

#define kAXWindowRole CFSTR("AXWindow")
