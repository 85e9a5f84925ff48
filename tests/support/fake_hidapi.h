#pragma once

#include <cstddef>
#include <vector>

// Stands in for the HID library: a program that links fake_hidapi.cpp enumerates this list instead
// of the devices of the machine. One thread.
namespace fake_hidapi {

struct interface_t {
    unsigned short vendor_id = 0;
    unsigned short product_id = 0;
    unsigned short usage_page = 0x01;
    unsigned short usage = 0x02;
};

// What is enumerated from now on; an empty list is the null that the library gives for no devices.
void attach(std::vector<interface_t> interfaces);
// Lets the library's start fail from now on.
void refuse_to_start();

// Starts of the library that have not been ended, and enumerations that have not been freed.
std::size_t sessions_open();
std::size_t lists_open();

}  // namespace fake_hidapi
