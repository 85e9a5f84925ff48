#pragma once

#include <cstddef>
#include <map>
#include <string>

// What the daemon's own code asks for, in a program that links counted_costs.cpp and
// failing_memory.cpp with product_and_desktop.ld: each "allocation", each "lock" of a mutex that it
// has itself, and each call of the platform's functions on the road of an event, by their names.
namespace counted_costs {

enum class threads_e { this_one, all };

// How often each was asked for; what was not is not there.
using costs_t = std::map<std::string, std::size_t>;
// From the names with blanks between, each as often as it is asked for.
costs_t costs_of(const std::string& names);

// Counts from here on. One count at a time; it is ended by the thread that began it.
void begin(threads_e threads);
// What was asked for since then.
costs_t end();

// Counts one, when the daemon asks. `what` is a literal, always the same one. Any thread.
void count(const char* what);

}  // namespace counted_costs
