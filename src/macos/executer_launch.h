#pragma once

#include <string>

// Opens a file with the application that the system has for it, without waiting for it. `path` is
// what the settings hold, and goes into a shell command as it stands. Any thread; what fails passes
// unnoticed, like all that follows. A path with a NUL byte names nothing and opens nothing;
// an empty one is passed on as it is.
void open_file(const std::string& path);

// Opens the program at `path` (UTF-8, as the settings hold it; other bytes open nothing) through
// Launch Services.
void open_standard_path_program(const std::string& path);

// Goes to the desktop to the left, or to the right, of the current one, and waits for the command
// that does it.
void switch_desktop_left();
void switch_desktop_right();

// The shell commands, each one line. The desktops are switched by the scripting host, which presses
// Control with the Left (key code 123) and the Right arrow key (124): the system's own shortcuts
// heed its key presses.
inline constexpr const char* left_desktop_command =
    "osascript -e 'tell application \"System Events\" to key code 123 using control down'";
inline constexpr const char* right_desktop_command =
    "osascript -e 'tell application \"System Events\" to key code 124 using control down'";
// Ends in an ampersand, so that nobody waits for the file to open.
std::string open_command(const std::string& path);
