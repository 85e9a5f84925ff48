#pragma once

#include <functional>
#include <string>

namespace simulator {

// Lets something happen between two calls of the program: `what` runs once, when the next call of
// the named function has been answered, on the thread that made the call and with no lock held.
// Known to the functions for sound and for displays. Any thread.
void after_next(std::string function, std::function<void()> what);

}  // namespace simulator
