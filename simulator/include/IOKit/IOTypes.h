#pragma once

#include <CoreFoundation/CFBase.h>
#include <IOKit/IOReturn.h>

using IOOptionBits = UInt32;

using mach_port_t = unsigned int;
using io_object_t = mach_port_t;
using io_iterator_t = io_object_t;
using io_registry_entry_t = io_object_t;
using io_service_t = io_object_t;
using io_name_t = char[128];

#define IO_OBJECT_NULL static_cast<io_object_t>(0)
