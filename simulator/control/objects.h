#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// What the program still owns: one line for each object that a Create or Copy call handed out and
// that has not been released as often as it was retained, in alphabetical order, such as
// "CFString from CFStringCreateWithBytes, retained 1". Constants are not listed. Any thread.
std::vector<std::string> objects_alive();

// Lets the next `times` calls of the named function fail in the way in which it fails on a Mac
// (null, or an error code), whatever the desktop's state. Failures that follow from the state (a
// permission revoked, a device gone) are to be preferred. Any thread.
void fail_next(std::string_view function, std::size_t times = 1);
// The same of one call alone: the `which`th from now, counted from 1.
void fail_call(std::string_view function, std::size_t which);

// Counts the calls that can fail from here on, whatever their function and thread, and lets the one
// with this number fail, from 1, or none for 0; with from_then_on also every later one of the same
// function. Any thread.
enum class failure_e { once, from_then_on };
void fail_call_number(std::size_t number, failure_e kind = failure_e::once);
// The function whose call failed by its number since then; empty when there were not that many.
std::string failed_by_number();
// How many calls of the function have been counted since then.
std::size_t counted_calls(std::string_view function);

// True when this call of `function` is to fail. The desktop's functions ask it, each call once, and
// so do stand-ins for functions that are not the desktop's. Any thread.
bool shall_fail(std::string_view function);

}  // namespace simulator
