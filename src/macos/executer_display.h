#pragma once

#include <IOKit/IOKitLib.h>

// The service through which the given display (a CGDirectDisplayID) is controlled: the first whose
// vendor and product are the display's, so one of two alike displays may stand for the other. 0
// when there is none, as for displays without such a service. The caller owns it and gives it to
// IOObjectRelease. Any thread.
io_service_t service_for_display(unsigned int display);

// Adds `step`, a part of the full brightness with its sign, to the main display's brightness,
// within [0.0, 1.0]. A display that cannot be controlled stays as it is, and nothing is logged:
// that is how many displays are. Any thread.
void step_main_display_brightness(float step);
