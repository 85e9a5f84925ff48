#pragma once

#include <CoreFoundation/CFBase.h>

using CFTimeInterval = double;          // seconds
using CFAbsoluteTime = CFTimeInterval;  // seconds since 2001-01-01 00:00:00 UTC

extern "C" {

CFAbsoluteTime CFAbsoluteTimeGetCurrent();

}  // extern "C"
