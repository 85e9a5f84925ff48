#pragma once

#include <functional>
#include <string>

// Lets something happen between two calls of a program, as when a window closes or a device is
// unplugged there: `what` runs once, on the thread that makes the next call of the named function
// and with no lock held. Any thread.
namespace simulator {

// Right before the call asks an application. Known to the functions for Accessibility.
void before_next_call(std::string function, std::function<void()> what);

// When the call has been answered. Known to those, to the functions for sound and for displays, to
// CGEventTapCreate, and to the calls that take taps and a HID manager down (CFRelease among them).
void after_next(std::string function, std::function<void()> what);

}  // namespace simulator
