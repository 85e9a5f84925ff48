#pragma once

#include <functional>

#include "control/permissions.h"

namespace simulator {

// Calls `changed` after each change of a permission, on the thread that made it, with no lock held.
// For parts of the desktop that act on a revocation (taps). Registered once, at start.
void on_permission_change(std::function<void(permission_e, bool granted)> changed);

// Whether Input Monitoring is granted. While it is undecided the user is asked, and the call waits
// for the answer. With no lock held.
bool request_input_monitoring();

}  // namespace simulator
