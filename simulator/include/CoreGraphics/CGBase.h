#pragma once

#include <CoreFoundation/CFBase.h>

using CGFloat = double;  // as on every 64-bit Mac
