#pragma once

#include "macos/device_mappings.h"
#include "support/desktop.h"

// Connects the mouse in this row of the table of models.
inline simulator::device_id_t connect_supported(std::size_t row = 0,
                                                const simulator::usages_t& keyboard = {}) {
    const device_mapping_t& mapping = device_mappings[row];
    return simulator::connect(
        {"", mapping.vendor_id, mapping.product_id, false, simulator::mouse_pairs, keyboard});
}
