#include "core_foundation/values.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>

#include "core/failure.h"

namespace simulator {
namespace {

// Whether the bytes are well-formed UTF-8: no stray, overlong or cut-off sequence, no surrogate,
// nothing beyond U+10FFFF.
bool well_formed(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto first = static_cast<unsigned char>(text[at]);
        std::size_t length = 0;
        std::uint32_t point = 0;
        std::uint32_t least = 0;
        if (first < 0x80) {
            ++at;
            continue;
        }
        if ((first & 0xE0U) == 0xC0U) {
            length = 2, point = first & 0x1FU, least = 0x80;
        } else if ((first & 0xF0U) == 0xE0U) {
            length = 3, point = first & 0x0FU, least = 0x800;
        } else if ((first & 0xF8U) == 0xF0U) {
            length = 4, point = first & 0x07U, least = 0x10000;
        } else {
            return false;
        }
        if (at + length > text.size()) {
            return false;
        }
        for (std::size_t next = at + 1; next < at + length; ++next) {
            const auto byte = static_cast<unsigned char>(text[next]);
            if ((byte & 0xC0U) != 0x80U) {
                return false;
            }
            point = (point << 6U) | (byte & 0x3FU);
        }
        if (point < least || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            return false;
        }
        at += length;
    }
    return true;
}

// The platform takes a byte beyond ASCII for the character of that number.
std::string from_ascii(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto number = static_cast<unsigned char>(byte);
        if (number < 0x80) {
            text += byte;
        } else {
            text += static_cast<char>(0xC0U | (number >> 6U));
            text += static_cast<char>(0x80U | (number & 0x3FU));
        }
    }
    return text;
}

std::optional<std::string> from_utf8(std::string_view bytes) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (bytes.substr(0, byte_order_mark.size()) == byte_order_mark) {
        bytes.remove_prefix(byte_order_mark.size());
    }
    return well_formed(bytes) ? std::optional(std::string(bytes)) : std::nullopt;
}

// Where the character of this byte stands among UTF-16 units: what UTF-8 writes in four bytes is a
// pair of surrogates there, before U+E000.
int rank_in_utf16(char byte) {
    const auto number = static_cast<unsigned char>(byte);
    return number == 0xEE || number == 0xEF ? number + 0x10 : number;
}

int compare_in_utf16(const std::string& first, const std::string& second) {
    const auto [in_first, in_second] =
        std::mismatch(first.begin(), first.end(), second.begin(), second.end());
    if (in_first == first.end() || in_second == second.end()) {
        return static_cast<int>(in_first != first.end()) -
               static_cast<int>(in_second != second.end());
    }
    return rank_in_utf16(*in_first) < rank_in_utf16(*in_second) ? -1 : 1;
}

bool is_64_bit(CFNumberType type, const char* function) {
    if (type != kCFNumberSInt64Type && type != kCFNumberSInt32Type && type != kCFNumberIntType) {
        not_modelled(function, "the number type " + std::to_string(type));
    }
    return type == kCFNumberSInt64Type;
}

CFBooleanRef make_boolean(bool value) {
    return static_cast<CFBooleanRef>(publish_constant(std::make_unique<boolean_t>(value)));
}

}  // namespace

void expect_default_allocator(CFAllocatorRef allocator, const char* function) {
    if (allocator != kCFAllocatorDefault) {
        not_modelled(function, "an allocator other than the default");
    }
}

}  // namespace simulator

using simulator::object_of;

extern "C" {

const CFBooleanRef kCFBooleanTrue = simulator::make_boolean(true);
const CFBooleanRef kCFBooleanFalse = simulator::make_boolean(false);

CFTypeID CFStringGetTypeID() {
    return static_cast<CFTypeID>(simulator::type_e::string);
}

CFStringRef __CFStringMakeConstantString(const char* text) {
    static auto* const mutex = new std::mutex;
    static auto* const strings = new std::map<std::string, CFStringRef>;
    const std::lock_guard lock(*mutex);
    CFStringRef& string = (*strings)[text];
    if (string == nullptr) {
        string = static_cast<CFStringRef>(
            simulator::publish_constant(std::make_unique<simulator::string_t>(text)));
    }
    return string;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean is_external) {
    simulator::expect_default_allocator(allocator, __func__);
    if (is_external != 0) {
        simulator::not_modelled(__func__, "an external representation");
    }
    if (count < 0 || (bytes == nullptr && count > 0)) {
        simulator::misuse(__func__, "there are no such bytes");
    }
    if (encoding != kCFStringEncodingUTF8 && encoding != kCFStringEncodingASCII) {
        simulator::not_modelled(__func__, "an encoding other than UTF-8 or ASCII");
    }
    const std::string_view given(reinterpret_cast<const char*>(bytes),
                                 static_cast<std::size_t>(count));
    auto text = encoding == kCFStringEncodingASCII ? std::optional(simulator::from_ascii(given))
                                                   : simulator::from_utf8(given);
    if (simulator::shall_fail(__func__) || !text) {
        return nullptr;
    }
    return static_cast<CFStringRef>(
        simulator::publish(std::make_unique<simulator::string_t>(std::move(*text)), __func__));
}

CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second,
                                   CFStringCompareFlags options) {
    if (options != 0) {
        simulator::not_modelled(__func__, "options");
    }
    return static_cast<CFComparisonResult>(
        simulator::compare_in_utf16(object_of<simulator::string_t>(first, __func__).text,
                                    object_of<simulator::string_t>(second, __func__).text));
}

CFTypeID CFNumberGetTypeID() {
    return static_cast<CFTypeID>(simulator::type_e::number);
}

CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value) {
    simulator::expect_default_allocator(allocator, __func__);
    const bool is_64_bit = simulator::is_64_bit(type, __func__);
    if (value == nullptr) {
        simulator::misuse(__func__, "there is no value");
    }
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    std::int64_t number = 0;
    if (is_64_bit) {
        std::memcpy(&number, value, sizeof number);
    } else {
        std::int32_t narrow = 0;
        std::memcpy(&narrow, value, sizeof narrow);
        number = narrow;
    }
    return static_cast<CFNumberRef>(
        simulator::publish(std::make_unique<simulator::number_t>(number), __func__));
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
    const std::int64_t wide = object_of<simulator::number_t>(number, __func__).value;
    const bool is_64_bit = simulator::is_64_bit(type, __func__);
    if (value == nullptr) {
        simulator::misuse(__func__, "there is no place for the value");
    }
    if (simulator::shall_fail(__func__)) {
        return 0;
    }
    if (is_64_bit) {
        std::memcpy(value, &wide, sizeof wide);
        return 1;
    }
    // A value that does not fit is cut, and the answer says so.
    const auto narrow = static_cast<std::int32_t>(wide);
    std::memcpy(value, &narrow, sizeof narrow);
    return narrow == wide ? 1 : 0;
}

CFAbsoluteTime CFAbsoluteTimeGetCurrent() {
    constexpr double seconds_from_1970_to_2001 = 978307200.0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - seconds_from_1970_to_2001;
}

}  // extern "C"
