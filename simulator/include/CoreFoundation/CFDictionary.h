#pragma once

#include <CoreFoundation/CFBase.h>

using CFDictionaryRef = const struct __CFDictionary*;
using CFMutableDictionaryRef = struct __CFDictionary*;

// Only the two constants below are known here, by their addresses: keys are strings, compared by
// their text; keys and values are retained and released.
struct CFDictionaryKeyCallBacks {
    CFIndex version;
};
struct CFDictionaryValueCallBacks {
    CFIndex version;
};

extern "C" {

extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* key_callbacks,
                                   const CFDictionaryValueCallBacks* value_callbacks);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* key_callbacks,
                                                 const CFDictionaryValueCallBacks* value_callbacks);
// Adds the pair, or replaces the value when the key is there.
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);

}  // extern "C"
