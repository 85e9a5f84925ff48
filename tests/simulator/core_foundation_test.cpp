#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "control/objects.h"

namespace {

using lines_t = std::vector<std::string>;

CFStringRef string_of(const std::string& bytes, CFStringEncoding encoding = kCFStringEncodingUTF8) {
    return CFStringCreateWithBytes(kCFAllocatorDefault,
                                   reinterpret_cast<const UInt8*>(bytes.data()),
                                   static_cast<CFIndex>(bytes.size()), encoding, 0);
}

CFArrayRef array_of(const void** values, CFIndex count) {
    return CFArrayCreate(kCFAllocatorDefault, values, count, &kCFTypeArrayCallBacks);
}

CFDictionaryRef dictionary_of(const void** keys, const void** values, CFIndex count) {
    return CFDictionaryCreate(kCFAllocatorDefault, keys, values, count,
                              &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
}

TEST(objects, containers_share_what_they_hold_and_what_is_owned_is_listed) {
    const void* text = string_of("text");
    const CFArrayRef array = array_of(&text, 1);
    const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(dictionary, text, text);
    CFDictionarySetValue(dictionary, text, array);
    CFRelease(text);
    CFRelease(array);
    lines_t alive = simulator::objects_alive();
    std::sort(alive.begin(), alive.end());
    EXPECT_EQ(alive, (lines_t{"CFArray from CFArrayCreate, retained 1",
                              "CFDictionary from CFDictionaryCreateMutable, retained 1",
                              "CFString from CFStringCreateWithBytes, retained 2"}));
    CFRelease(dictionary);
    EXPECT_EQ(simulator::objects_alive(), lines_t());
}

TEST(strings, malformed_bytes_make_none) {
    const std::vector<std::pair<std::string, bool>> cases = {
        {"", true},
        {std::string("a\0b", 3), true},
        {"\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF", true},
        {"\x80", false},
        {"\xC3", false},
        {"\xC0\xAF", false},          // longer than need be
        {"\xED\xA0\x80", false},      // half of a surrogate pair
        {"\xF4\x90\x80\x80", false},  // beyond the last code point
    };
    for (const auto& [bytes, well_formed] : cases) {
        const CFStringRef string = string_of(bytes);
        EXPECT_EQ(string != nullptr, well_formed) << testing::PrintToString(bytes);
        if (string != nullptr) {
            CFRelease(string);
        }
    }
    EXPECT_EQ(string_of("\xC3\xA9", kCFStringEncodingASCII), nullptr);
}

TEST(numbers, one_that_does_not_fit_is_told) {
    const std::vector<std::pair<std::int64_t, bool>> cases = {
        {0, true},           {2147483647, true},   {2147483648, false},
        {-2147483648, true}, {-2147483649, false},
    };
    for (const auto& [value, fits] : cases) {
        const CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
        std::int32_t narrow = 0;
        std::int64_t wide = 0;
        EXPECT_EQ(CFNumberGetValue(number, kCFNumberIntType, &narrow) != 0, fits) << value;
        EXPECT_EQ(narrow == value, fits) << value;
        EXPECT_TRUE(CFNumberGetValue(number, kCFNumberSInt64Type, &wide));
        EXPECT_EQ(wide, value);
        CFRelease(number);
    }
}

TEST(mistakes, end_the_program_with_the_function) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const CFStringRef dead = string_of("dead");
    CFRelease(dead);
    const int foreign = 0;
    const void* items[] = {CFSTR("item")};
    const CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &foreign);
    const CFArrayRef array = array_of(nullptr, 0);
    const CFDictionaryRef dictionary = dictionary_of(nullptr, nullptr, 0);
    const auto unknown_type = static_cast<CFNumberType>(6);

    const std::vector<std::pair<std::function<void()>, const char*>> mistakes = {
        {[] { CFRelease(nullptr); }, "CFRelease: the reference is null"},
        {[&] { CFRelease(dead); }, "CFRelease: the reference is dead"},
        {[&] { CFRetain(&foreign); }, "CFRetain: the reference is dead, or was never one"},
        {[&] { CFGetTypeID(dead); }, "CFGetTypeID: the reference is dead"},
        {[&] { items[0] = dead, array_of(items, 1); }, "CFArrayCreate: the reference is dead"},
        {[&] { array_of(items, -1); }, "CFArrayCreate: there are no such items"},
        {[] { array_of(nullptr, 1); }, "CFArrayCreate: there are no such items"},
        {[&] { dictionary_of(nullptr, items, 1); }, "CFDictionaryCreate: there are no such items"},
        {[&] { dictionary_of(items, nullptr, 1); }, "CFDictionaryCreate: there are no such items"},
        {[&] { CFArrayAppendValue(const_cast<CFMutableArrayRef>(array), items[0]); },
         "CFArrayAppendValue: the array is immutable"},
        {[&] {
             CFDictionarySetValue(const_cast<CFMutableDictionaryRef>(dictionary), items[0], array);
         },
         "CFDictionarySetValue: the dictionary is immutable"},
        {[] { CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, nullptr); },
         "CFNumberCreate: there is no value"},
        {[&] { CFNumberGetValue(number, kCFNumberIntType, nullptr); },
         "CFNumberGetValue: there is no place"},
        {[&] { CFNumberGetValue(reinterpret_cast<CFNumberRef>(array), kCFNumberIntType, nullptr); },
         "CFNumberGetValue: expects CFNumber, got CFArray"},
        {[&] {
             simulator::fail_next("CFNumberCreate");  // a mistake is one then, too
             CFNumberCreate(kCFAllocatorDefault, unknown_type, &foreign);
         },
         "CFNumberCreate: not modelled: the number type 6"},
    };
    for (const auto& [mistake, message] : mistakes) {
        EXPECT_DEATH(mistake(), message);
    }
    CFRelease(number);
    CFRelease(array);
    CFRelease(dictionary);
}

}  // namespace
