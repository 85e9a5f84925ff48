#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/object.h"

// The values of Core Foundation: what stands behind the references, for the other parts of the
// desktop.
namespace simulator {

class string_t final : public object_t {
  public:
    static constexpr type_e type = type_e::string;
    explicit string_t(std::string utf8) : text(std::move(utf8)) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::string text;  // UTF-8
};

class boolean_t final : public object_t {
  public:
    static constexpr type_e type = type_e::boolean;
    explicit boolean_t(bool is_true) : value(is_true) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const bool value;
};

class number_t final : public object_t {
  public:
    static constexpr type_e type = type_e::number;
    explicit number_t(std::int64_t number) : value(number) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::int64_t value;
};

class url_t final : public object_t {
  public:
    static constexpr type_e type = type_e::url;
    explicit url_t(std::string file_path) : path(std::move(file_path)) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::string path;  // UTF-8
};

class array_t final : public object_t {
  public:
    static constexpr type_e type = type_e::array;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    std::vector<retained_t<object_t>> values;
    bool is_mutable = false;
};

class dictionary_t final : public object_t {
  public:
    static constexpr type_e type = type_e::dictionary;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    // The value under a key; null when there is none.
    CFTypeRef find(const std::string& key) const;

    std::vector<std::pair<retained_t<string_t>, retained_t<object_t>>> items;
    bool is_mutable = false;
};

// Ends the program unless the allocator is the default one.
void expect_default_allocator(CFAllocatorRef allocator, const char* function);

}  // namespace simulator
