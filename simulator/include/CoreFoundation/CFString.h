#pragma once

#include <CoreFoundation/CFBase.h>

using CFStringEncoding = UInt32;
using CFStringCompareFlags = CFOptionFlags;

enum CFStringBuiltInEncodings : CFStringEncoding {
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100,
};

// A string that lives as long as the process; the same text is the same object.
#define CFSTR(text) __CFStringMakeConstantString("" text "")

extern "C" {

CFTypeID CFStringGetTypeID();
CFStringRef __CFStringMakeConstantString(const char* text);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean is_external);
CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second,
                                   CFStringCompareFlags options);

}  // extern "C"
