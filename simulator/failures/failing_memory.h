#pragma once

#include <cstddef>

// Memory that the daemon's own code asks for, in a program that links failing_memory.cpp with
// counted_costs.cpp and product_and_desktop.ld. What the desktop or the test needs
// is always there.
namespace failing_memory {

// Counts the daemon's allocations from here on, on all threads, and refuses the one with this
// number (std::bad_alloc), from 1, or none for 0. Any thread.
void refuse(std::size_t number);
// Whether it has been refused since then.
bool has_refused();

}  // namespace failing_memory
