#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "common/input_value.h"

// One supported product as it identifies itself over USB or Bluetooth.
struct device_mapping_t {
    std::uint32_t vendor_id;   // USB or Bluetooth vendor
    std::uint32_t product_id;  // of that vendor
    qlx_device_e device;
    std::string_view model_name;  // this and the next for people; capture does not use them
    std::string_view product_name;
};

// All supported products; the first row with a device's vendor and product number names its model.
// The vendor and product numbers are placeholders that belong to nobody: before a release the maker
// writes the numbers from the devices' own descriptors here. Nothing else depends on them, but a
// product number alone does not identify a model: rows 3 and 5 share theirs.
inline constexpr std::array<device_mapping_t, 5> device_mappings{{
    {0xE7A1, 0x0011, qlx_device_e::valtor_pro, "QLX Valtor Pro",
     "QLX Valtor Pro Dongle & Bluetooth"},
    {0xE7A1, 0x0012, qlx_device_e::valtor_pro, "QLX Valtor Pro", "QLX Valtor Pro Dongle V2"},
    {0xE7B2, 0x0021, qlx_device_e::valtor_pro, "QLX Valtor Pro", "QLX Valtor Pro HID V2"},
    {0xE7C3, 0x0020, qlx_device_e::valtor_pro, "QLX Valtor Pro", "QLX Valtor Pro Bluetooth"},
    {0xE7C3, 0x0021, qlx_device_e::valtor_pro, "QLX Valtor Pro", "QLX Valtor Pro Bluetooth V2"},
}};
