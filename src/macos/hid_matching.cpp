#include "macos/hid_matching.h"

#include <IOKit/hid/IOHIDKeys.h>

#include <array>

cpf_t<CFNumberRef> created_number(std::int32_t value) {
    return created(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

cpf_t<CFDictionaryRef> usage_matching(std::int32_t page, std::int32_t usage) {
    const auto page_number = created_number(page);
    const auto usage_number = created_number(usage);
    std::array<const void*, 2> keys{CFSTR(kIOHIDDeviceUsagePageKey), CFSTR(kIOHIDDeviceUsageKey)};
    std::array<const void*, 2> values{page_number.get(), usage_number.get()};
    return created(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                                      &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks));
}
