#pragma once

namespace simulator {

// The privacy permissions of the one program on this desktop. Both are granted at the start.
enum class permission_e { accessibility, input_monitoring };

// Any thread. Revoking Accessibility disables active taps; each learns of it with the next event
// that it would have seen.
void grant(permission_e permission);
void revoke(permission_e permission);
bool granted(permission_e permission);

}  // namespace simulator
