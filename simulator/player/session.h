#pragma once

#include <filesystem>

// How the player, which stays outside, tells the daemon's process which desktop it wakes up on: by
// environment variables that the simulated desktop reads and that the daemon knows nothing of.
namespace simulator::player {

inline constexpr const char* variable_scenario = "QLX_DESKTOP_SCENARIO";  // the scenario's file
inline constexpr const char* variable_run = "QLX_DESKTOP_RUN";  // which of its runs, from 0
// The file to which the `open` and `osascript` of the desktop append their arguments.
inline constexpr const char* variable_commands = "QLX_DESKTOP_COMMANDS";
inline constexpr const char* variable_report = "QLX_DESKTOP_REPORT";  // a file: see below
// The folder that stands for the root of the disk: /Applications and /Library are looked for in it.
inline constexpr const char* variable_root = "QLX_DESKTOP_ROOT";

// What the part inside the daemon's process writes to the report file, a line each.
inline constexpr const char* report_unmet = "unmet ";   // followed by what was not met
inline constexpr const char* report_begun = "begun";    // a step
inline constexpr const char* report_played = "played";  // all of them, and looked at

// Where things are on the disk of a simulated desktop.
std::filesystem::path front_application(const std::filesystem::path& root);
std::filesystem::path support_folder(const std::filesystem::path& root_or_home);
std::filesystem::path settings_file(const std::filesystem::path& home);
std::filesystem::path rights_file(const std::filesystem::path& home);
std::filesystem::path log_file(const std::filesystem::path& home);

// Writes a file so that nobody sees half of it, as the front application writes its settings.
// Throws std::runtime_error or std::filesystem::filesystem_error when it cannot be written.
void replace_file(const std::filesystem::path& file, const std::string& text);

// The whole file; empty when it cannot be read.
std::string file_text(const std::filesystem::path& file);

}  // namespace simulator::player
