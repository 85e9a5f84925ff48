#pragma once

#include "player/scenario.h"

namespace simulator::player {

// Goes through the steps of a run without playing them. Throws std::runtime_error, naming the step,
// for what is not possible when its turn comes: that is an error of the scenario, not of the
// daemon.
void check_course(const scenario_t& scenario, const run_t& run);

}  // namespace simulator::player
