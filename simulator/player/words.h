#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "control/input.h"
#include "control/permissions.h"
#include "player/scenario.h"

// What the player says, in words that a stranger understands.
namespace simulator::player {

// One line of the story on standard output: who did what.
void tell(const std::string& who, const std::string& what);

std::string list_text(const std::vector<std::string>& items);  // "nothing" for an empty list
std::string button_text(std::int64_t button);
std::string phase_text(phase_e phase);  // "presses ", with the blank
std::string event_text(const event_record_t& event);
std::string outcome_text(const event_record_t& event);  // what became of the event
const char* permission_text(permission_e permission);

bool is_key(const event_record_t& event);

}  // namespace simulator::player
