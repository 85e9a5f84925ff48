#pragma once

#include <CoreFoundation/CFBase.h>

using CFBooleanRef = const struct __CFBoolean*;
using CFNumberRef = const struct __CFNumber*;

enum CFNumberType : CFIndex {
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberIntType = 9,
};

extern "C" {

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

CFTypeID CFNumberGetTypeID();
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

}  // extern "C"
