#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <chrono>

#include "macos/cpf.h"

// How long the platform waits for an application's answer where nobody says otherwise.
inline constexpr std::chrono::duration<float> platform_patience{6.0F};

// How long a tap callback waits for one. The system takes a tap away from a callback that is slow,
// and an application that hangs under the pointer must not cost the daemon its taps.
inline constexpr std::chrono::duration<float> callback_patience{0.25F};

// The frontmost interface element at a place on the desktop; null when nothing is there, when
// Accessibility tells nothing, and when the application there does not answer. Waits for it as long
// as the platform does, or twice that when a tap callback's hit test cuts the first wait short. Any
// thread but that of the tap callbacks.
cpf_t<AXUIElementRef> element_at(CGPoint place);

// The same within the patience of a tap callback. Only the thread of the tap callbacks.
cpf_t<AXUIElementRef> element_at_in_callback(CGPoint place);
