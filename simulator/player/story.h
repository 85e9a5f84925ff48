#pragma once

#include <string>

namespace simulator::player {

// The file that gets the story of a scenario for its page, an object in JSON a line; where it is
// not set there is none.
inline constexpr const char* variable_story = "QLX_DESKTOP_STORY";

// Adds to the story at this moment (local time) who did what: "hand", "user", "front", "desktop"
// and "daemon" as they are told, "run" for the beginning of a run and "end" for that of its end,
// "met" and "UNMET" for what was expected, "log" for a line of the log, "title", and "verdict" as
// the last. One caller at a time: the player while no daemon runs, and in the daemon's process the
// hand's thread, or the main thread before that begins and after it has ended.
void note(const std::string& who, const std::string& what);

}  // namespace simulator::player
