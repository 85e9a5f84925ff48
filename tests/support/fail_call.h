#pragma once

#include <string>

#include "control/calls.h"
#include "control/objects.h"

// Lets the named function fail when it is called for the `which`th time from now, from 1; beyond
// the first only one that after_next() knows.
inline void fail_call(const std::string& function, int which) {
    if (which == 1) {
        simulator::fail_next(function);
    } else {
        simulator::after_next(function, [function, which] { fail_call(function, which - 1); });
    }
}
