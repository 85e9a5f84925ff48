#pragma once

#include <cstdint>

extern "C" {

// Writes the short name that the kernel keeps for a process of this user, zero-terminated, into
// `buffer`, of which it needs 32 bytes. Returns the name's length, or 0 with errno set. Any thread.
int proc_name(int pid, void* buffer, std::uint32_t buffersize);

}  // extern "C"
