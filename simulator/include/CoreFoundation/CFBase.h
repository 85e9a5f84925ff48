#pragma once

// The base of Core Foundation in the simulated desktop: the platform's names, types and numbers,
// for the calls that this project makes. On a Mac the platform's own header takes its place.

#include <cstddef>
#include <cstdint>

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using UInt32 = std::uint32_t;
using SInt32 = std::int32_t;
using OSStatus = SInt32;

using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFHashCode = unsigned long;
using CFIndex = signed long;

using CFTypeRef = const void*;
using CFStringRef = const struct __CFString*;
using CFAllocatorRef = const struct __CFAllocator*;

enum CFComparisonResult : CFIndex {
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1,
};

extern "C" {

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeRef CFRetain(CFTypeRef reference);
void CFRelease(CFTypeRef reference);
CFTypeID CFGetTypeID(CFTypeRef reference);

}  // extern "C"
