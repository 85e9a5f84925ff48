#pragma once

namespace simulator {

// The privacy permissions of the one program on this desktop. Both are granted at the start.
enum class permission_e { accessibility, input_monitoring };

// Any thread. Revoking Accessibility disables active taps; each learns of it with the next event
// that it would have seen. Input Monitoring counts when a device is opened and never again. Both
// also answer the question below.
void grant(permission_e permission);
void revoke(permission_e permission);
bool granted(permission_e permission);

// Nobody has decided on Input Monitoring yet: the program's next opening of a keyboard, mouse or
// touchpad lets the system ask the user, and waits for the answer, a grant or a revocation.
void leave_input_monitoring_undecided();
// Whether the program waits for the user's answer at this moment.
bool user_is_asked();

}  // namespace simulator
