#include "macos/query_manager_mice.h"

#include <hidapi.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/input_value.h"
#include "macos/device_mappings.h"

namespace {

// Numbers of the USB HID usage tables.
constexpr unsigned short generic_desktop_page = 0x01;
constexpr unsigned short mouse_usage = 0x02;

qlx_device_e model_of(const hid_device_info& info) {
    const auto row =
        std::find_if(device_mappings.begin(), device_mappings.end(), [&](const auto& candidate) {
            return candidate.vendor_id == info.vendor_id && candidate.product_id == info.product_id;
        });
    return row != device_mappings.end() ? row->device : qlx_device_e::not_a_device;
}

// Ends the HID library's use at the end of its scope, also when making the answer fails.
struct hid_session_t {
    const bool started = hid_init() == 0;

    hid_session_t() = default;
    hid_session_t(const hid_session_t&) = delete;
    hid_session_t& operator=(const hid_session_t&) = delete;
    ~hid_session_t() {
        if (started) {
            hid_exit();
        }
    }
};

}  // namespace

nlohmann::json mice_among(const hid_device_info* first) {
    std::vector<qlx_device_e> models;
    auto numbers = nlohmann::json::array();
    for (const auto* info = first; info != nullptr; info = info->next) {
        if (info->usage_page != generic_desktop_page || info->usage != mouse_usage) {
            continue;
        }
        const auto model = model_of(*info);
        if (model == qlx_device_e::not_a_device ||
            std::find(models.begin(), models.end(), model) != models.end()) {
            continue;
        }
        models.push_back(model);
        numbers.push_back(static_cast<std::uint32_t>(model));
    }
    return numbers;
}

nlohmann::json list_all_mice() {
    const hid_session_t session;
    if (!session.started) {
        return nlohmann::json::array();
    }
    const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> devices(
        hid_enumerate(0, 0), &hid_free_enumeration);
    return mice_among(devices.get());
}
