#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "core/message_source.h"
#include "quartz/event.h"

namespace simulator {

// Shows an event to the taps, the one made last first, and waits for each answer as long as the
// patience lasts. Returns the event as they left it, or nothing when one of them swallowed it. On
// the thread that events come from.
std::optional<event_values_t> pass_taps(event_values_t event);

// What stands behind the taps that exist.
std::vector<std::shared_ptr<message_source_t>> tap_messages();

}  // namespace simulator
