#pragma once

#include <memory>
#include <vector>

#include "core/message_source.h"
#include "hid/hid_device.h"

// The desktop's side of the HID managers. Any thread.
namespace simulator {

void plug_in(const std::shared_ptr<hid_interface_t>& interface);
void unplug(const std::shared_ptr<hid_interface_t>& interface);

// Gives the values of one report to every device that a manager has open and that asks for them.
void send_report(const hid_interface_t& interface, const usages_t& report);

// What stands behind the managers that exist.
std::vector<std::shared_ptr<message_source_t>> hid_messages();

}  // namespace simulator
