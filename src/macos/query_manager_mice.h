#pragma once

#include <nlohmann/json.hpp>

struct hid_device_info;

// The supported models among the devices of a list as the HID library gives it (`first` may be
// null): an array of the numbers of qlx_device_e, each model once, in the order of the list.
[[nodiscard]] nlohmann::json mice_among(const hid_device_info* first);

// The supported models attached now; empty when the HID library cannot tell. One thread at a time.
[[nodiscard]] nlohmann::json list_all_mice();
