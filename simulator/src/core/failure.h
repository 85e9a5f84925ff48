#pragma once

#include <string_view>

#include "control/objects.h"

namespace simulator {

// Ends the program (abort) with "<function>: <what>" on standard error: the caller broke a rule of
// the platform, and going on would hide it.
[[noreturn]] void misuse(std::string_view function, std::string_view what);

// Ends the program with "<function>: not modelled: <what>": the caller did something that may be
// right on a Mac but that this desktop does not know.
[[noreturn]] void not_modelled(std::string_view function, std::string_view what);

}  // namespace simulator
