#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <new>

#include "macos/cpf.h"

// The values of the dictionaries that tell the HID manager what to match. A dictionary with a key
// missing would match far more than is meant, so all of these throw std::bad_alloc when the system
// hands out nothing.

// Takes over what a Create call handed out.
template <typename ref_t>
[[nodiscard]] cpf_t<ref_t> created(ref_t reference) {
    if (reference == nullptr) {
        throw std::bad_alloc();
    }
    return cpf_t<ref_t>::adopt(reference);
}

[[nodiscard]] cpf_t<CFNumberRef> created_number(std::int32_t value);

// Matches the devices that have this usage pair.
[[nodiscard]] cpf_t<CFDictionaryRef> usage_matching(std::int32_t page, std::int32_t usage);
