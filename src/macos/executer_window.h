#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include "macos/cpf.h"

// The window under the pointer; null when none is there or Accessibility tells nothing. Any thread;
// may wait for the application that the window belongs to, like all that follows.
cpf_t<AXUIElementRef> window_under_cursor();

// Each does what it says to the window under the pointer, through Accessibility, and logs the
// attempt and a failure.
void minimize_window_under_cursor();
void maximize_window_under_cursor();
void close_window_under_cursor();

// How many elements are looked at on the way up to a window. A broken application can hang its
// elements in a ring, and the walk has to end in any case.
inline constexpr int ancestor_limit = 32;

// The first of `element`, its parent, the parent's parent and so on that `is_window`, at most
// `ancestor_limit` of them; an empty one when there is none. `parent_of` gives an empty one at the
// top. An element converts to bool.
template <typename element_t, typename is_window_t, typename parent_of_t>
element_t nearest_window(element_t element, is_window_t is_window, parent_of_t parent_of) {
    for (int looked_at = 0; element && looked_at < ancestor_limit; ++looked_at) {
        if (is_window(element)) {
            return element;
        }
        element = parent_of(element);
    }
    return {};
}

// Which way a window is minimised: by its attribute where that can be set, else by its button, and
// not by the button when the attribute was refused: the attribute names the result, and a refusal
// is the application's answer. Each way says whether it worked.
template <typename is_settable_t, typename set_t, typename press_t>
bool minimize_by(is_settable_t attribute_is_settable, set_t set_attribute, press_t press_button) {
    return attribute_is_settable() ? set_attribute() : press_button();
}

// Which way a window is maximised: by its zoom button, since that leaves it on its desktop, and
// only when that does not work by full screen. Each way says whether it worked.
template <typename press_t, typename is_settable_t, typename set_t>
bool maximize_by(press_t press_button, is_settable_t attribute_is_settable, set_t set_attribute) {
    return press_button() || (attribute_is_settable() && set_attribute());
}
