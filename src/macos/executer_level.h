#pragma once

#include <cmath>

// How an action steps a level between 0.0 and 1.0, such as the volume or a display's brightness:
// `level` as the platform reported it, `step` with its sign. The result is within [0.0, 1.0]. What
// is not a number counts as 0.0, so that a device that reports nonsense becomes quiet, not loud,
// and the next step up works.
inline float stepped_level(float level, float step) {
    const float stepped = (std::isnan(level) ? 0.0F : level) + step;
    if (stepped < 0.0F) {
        return 0.0F;
    }
    if (stepped > 1.0F) {
        return 1.0F;
    }
    return stepped;
}
