#pragma once

namespace simulator {

// The privacy permissions of the one program on this desktop. Both are granted at the start.
enum class permission_e { accessibility, input_monitoring };

// Any thread. Revoking Accessibility disables active taps, as the system does.
void grant(permission_e permission);
void revoke(permission_e permission);
bool granted(permission_e permission);

}  // namespace simulator
