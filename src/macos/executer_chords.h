#pragma once

#include <cstdint>
#include <vector>

#include "common/input_value.h"

// One synthetic key event.
struct key_event_t {
    std::uint16_t code = 0;  // macOS virtual key code
    bool down = false;
    std::uint64_t flags = 0;  // Quartz event flags

    bool operator==(const key_event_t&) const = default;
};

// A list of inputs taken apart; each part keeps the list's order.
struct key_list_t {
    std::vector<input_value_e> modifiers;
    std::vector<input_value_e> keys;
};
key_list_t split_key_list(const std::vector<input_value_e>& list);

// The events of a chord in posting order: modifiers down, keys down, keys up, modifiers up. Inputs
// without a key code are left out; without any other there is no event.
std::vector<key_event_t> chord_events(const std::vector<input_value_e>& modifiers,
                                      const std::vector<input_value_e>& keys);

// Posts the events into the session's event stream, back to back. An event that the system does not
// make is skipped; a key that went down and could not come up in its turn does so at the end. Any
// thread.
void post_key_events(const std::vector<key_event_t>& events);
