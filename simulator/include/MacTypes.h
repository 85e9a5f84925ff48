#pragma once

// Old types of the platform that the newer ones still use.

using Float32 = float;

enum { noErr = 0 };
