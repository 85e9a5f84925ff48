#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// What the program still owns: one line for each object that a Create or Copy call handed out and
// that has not been released as often as it was retained, such as
// "CFString from CFStringCreateWithBytes, retained 1". Constants are not listed. Any thread.
std::vector<std::string> objects_alive();

// Lets the next `times` calls of the named function fail in the way in which it fails on a Mac
// (null, or an error code), whatever the desktop's state. Failures that follow from the state (a
// permission revoked, a device gone) are to be preferred. Any thread.
void fail_next(std::string_view function, std::size_t times = 1);

}  // namespace simulator
