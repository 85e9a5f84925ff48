#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "core/message_source.h"
#include "quartz/event.h"

namespace simulator {

// Shows events to the taps, to the one made last first. All of them wait before their first tap at
// once; each answer is waited for as long as the patience lasts. `then` gets, in order, the number
// of each, from 0, and the event as the taps left it, or nothing when one of them swallowed it. On
// the thread that events come from.
void pass_taps(const std::vector<event_values_t>& events,
               const std::function<void(std::size_t, const std::optional<event_values_t>&)>& then);

// What stands behind the taps that exist.
std::vector<std::shared_ptr<message_source_t>> tap_messages();

}  // namespace simulator
