#pragma once

#include <CoreFoundation/CFBase.h>

using CGKeyCode = std::uint16_t;  // a virtual key code
