#pragma once

#include <CoreFoundation/CFBase.h>

using CFArrayRef = const struct __CFArray*;
using CFMutableArrayRef = struct __CFArray*;

// Only kCFTypeArrayCallBacks is known here, by its address: elements are retained and released.
struct CFArrayCallBacks {
    CFIndex version;
};

extern "C" {

extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callbacks);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callbacks);
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

}  // extern "C"
