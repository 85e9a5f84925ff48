#pragma once

#include <cstddef>

namespace simulator {

// How many kernel event queues the program has open. What stood behind closed ones is freed. Any
// thread; not on a Mac and the BSDs, whose own queues the program uses.
std::size_t kernel_queues_open();

}  // namespace simulator
