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

// What is enumerated; an empty list is the null that the library gives for no devices.
inline std::vector<interface_t> attached;
// Lets the library's start fail.
inline bool refuses_to_start = false;
// Starts of the library that have not been ended. None ends before its enumerations are freed.
inline std::size_t sessions_open = 0;

}  // namespace fake_hidapi
