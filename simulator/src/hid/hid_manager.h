#pragma once

#include <memory>
#include <vector>

#include "core/message_source.h"
#include "hid/hid_device.h"

namespace simulator {

// Gives a value of one of a device's controls to the managers that want it.
void send_value(const hid_element_t& element);

// Tells the managers that know the device that it is gone. Once they have been told, no program may
// use it any more.
void send_removal(hid_device_t& device);

// What stands behind the managers that exist.
std::vector<std::shared_ptr<message_source_t>> hid_messages();

}  // namespace simulator
