#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <IOKit/IOTypes.h>

// Handles of services and iterators. Each call that hands one out gives its caller one reference,
// to be given back with IOObjectRelease; a service that is found twice has one handle, held twice.

enum {
    kIORegistryIterateRecursively = 1,
};

extern "C" {

extern const mach_port_t kIOMainPortDefault;

// A dictionary that stands for all services of a class. The caller owns it.
CFMutableDictionaryRef IOServiceMatching(const char* class_name);

// Uses up one reference of `matching`, also when it fails. `*existing` is an iterator, or
// IO_OBJECT_NULL with success: no service matches.
kern_return_t IOServiceGetMatchingServices(mach_port_t main_port, CFDictionaryRef matching,
                                           io_iterator_t* existing);

// The next service; IO_OBJECT_NULL after the last.
io_object_t IOIteratorNext(io_iterator_t iterator);

// The value of a service's property, which the caller owns, or null when it has none of that name.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

// The same of the service, or else of the first that has it of those below it in the plane.
CFTypeRef IORegistryEntrySearchCFProperty(io_registry_entry_t entry, const io_name_t plane,
                                          CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options);

kern_return_t IOObjectRelease(io_object_t object);

}  // extern "C"
