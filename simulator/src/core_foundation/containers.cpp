#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>

#include "core/failure.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

void expect_items(const void* const* items, CFIndex count, const char* function) {
    if (count < 0 || (items == nullptr && count > 0)) {
        misuse(function, "there are no such items");
    }
}

std::unique_ptr<array_t> make_array(const CFArrayCallBacks* callbacks, bool is_mutable,
                                    const char* function) {
    if (callbacks != &kCFTypeArrayCallBacks) {
        not_modelled(function, "callbacks other than kCFTypeArrayCallBacks");
    }
    auto array = std::make_unique<array_t>();
    array->is_mutable = is_mutable;
    return array;
}

std::unique_ptr<dictionary_t> make_dictionary(const CFDictionaryKeyCallBacks* key_callbacks,
                                              const CFDictionaryValueCallBacks* value_callbacks,
                                              bool is_mutable, const char* function) {
    if (key_callbacks != &kCFTypeDictionaryKeyCallBacks ||
        value_callbacks != &kCFTypeDictionaryValueCallBacks) {
        not_modelled(function, "callbacks other than those for Core Foundation types");
    }
    auto dictionary = std::make_unique<dictionary_t>();
    dictionary->is_mutable = is_mutable;
    return dictionary;
}

void put(dictionary_t& dictionary, const void* key, const void* value, bool replace,
         const char* function) {
    const std::string& text = object_of<string_t>(key, function).text;
    object_of(value, function);
    for (auto& [known, item] : dictionary.items) {
        if (known->text == text) {
            if (replace) {
                item = retained_t<object_t>(value);
            }
            return;
        }
    }
    dictionary.items.emplace_back(retained_t<string_t>(key), retained_t<object_t>(value));
}

// A mutable container is the same object under a reference type that is not const.
template <typename mutable_ref_t>
mutable_ref_t mutable_reference(CFTypeRef reference) {
    return static_cast<mutable_ref_t>(const_cast<void*>(reference));
}

}  // namespace

CFTypeRef dictionary_t::find(const std::string& key) const {
    for (const auto& [known, item] : items) {
        if (known->text == key) {
            return item.reference();
        }
    }
    return nullptr;
}

}  // namespace simulator

using simulator::object_of;

extern "C" {

const CFArrayCallBacks kCFTypeArrayCallBacks = {};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callbacks) {
    simulator::expect_default_allocator(allocator, __func__);
    simulator::expect_items(values, count, __func__);
    auto array = simulator::make_array(callbacks, false, __func__);
    for (CFIndex index = 0; index < count; ++index) {
        object_of(values[index], __func__);
        array->values.emplace_back(values[index]);
    }
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return static_cast<CFArrayRef>(simulator::publish(std::move(array), __func__));
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callbacks) {
    simulator::expect_default_allocator(allocator, __func__);
    if (capacity < 0) {
        simulator::misuse(__func__, "the capacity is negative");
    }
    auto array = simulator::make_array(callbacks, true, __func__);
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return simulator::mutable_reference<CFMutableArrayRef>(
        simulator::publish(std::move(array), __func__));
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
    auto& target = object_of<simulator::array_t>(array, __func__);
    if (!target.is_mutable) {
        simulator::misuse(__func__, "the array is immutable");
    }
    object_of(value, __func__);
    target.values.emplace_back(value);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* key_callbacks,
                                   const CFDictionaryValueCallBacks* value_callbacks) {
    simulator::expect_default_allocator(allocator, __func__);
    simulator::expect_items(keys, count, __func__);
    simulator::expect_items(values, count, __func__);
    auto dictionary = simulator::make_dictionary(key_callbacks, value_callbacks, false, __func__);
    for (CFIndex index = 0; index < count; ++index) {
        simulator::put(*dictionary, keys[index], values[index], false, __func__);
    }
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return static_cast<CFDictionaryRef>(simulator::publish(std::move(dictionary), __func__));
}

CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* key_callbacks,
    const CFDictionaryValueCallBacks* value_callbacks) {
    simulator::expect_default_allocator(allocator, __func__);
    if (capacity < 0) {
        simulator::misuse(__func__, "the capacity is negative");
    }
    auto dictionary = simulator::make_dictionary(key_callbacks, value_callbacks, true, __func__);
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    return simulator::mutable_reference<CFMutableDictionaryRef>(
        simulator::publish(std::move(dictionary), __func__));
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    auto& target = object_of<simulator::dictionary_t>(dictionary, __func__);
    if (!target.is_mutable) {
        simulator::misuse(__func__, "the dictionary is immutable");
    }
    simulator::put(target, key, value, true, __func__);
}

}  // extern "C"
