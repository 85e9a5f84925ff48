#pragma once

#include <CoreFoundation/CFBase.h>

using CFURLRef = const struct __CFURL*;

enum CFURLPathStyle : CFIndex {
    kCFURLPOSIXPathStyle = 0,
};

extern "C" {

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path,
                                       CFURLPathStyle style, Boolean is_directory);

}  // extern "C"
