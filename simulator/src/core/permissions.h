#pragma once

#include <functional>

#include "control/permissions.h"

namespace simulator {

// Calls `changed` after each change of a permission, on the thread that made it, with no lock held.
// For parts of the desktop that act on a revocation (taps). Registered once, at start.
void on_permission_change(std::function<void(permission_e, bool granted)> changed);

}  // namespace simulator
