#pragma once

#include <CoreFoundation/CFBase.h>

using CFArrayRef = const struct __CFArray*;
using CFMutableArrayRef = struct __CFArray*;

extern "C" {

using CFArrayRetainCallBack = const void* (*)(CFAllocatorRef allocator, const void* value);
using CFArrayReleaseCallBack = void (*)(CFAllocatorRef allocator, const void* value);
using CFArrayCopyDescriptionCallBack = CFStringRef (*)(const void* value);
using CFArrayEqualCallBack = Boolean (*)(const void* first, const void* second);

// Only kCFTypeArrayCallBacks is known here, by its address: elements are retained and released.
struct CFArrayCallBacks {
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
};

extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callbacks);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callbacks);
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

}  // extern "C"
