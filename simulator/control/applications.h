#pragma once

#include <CoreGraphics/CGGeometry.h>

#include <sys/types.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Applications, their windows and what stands in them. Any thread. An application that is not there
// (open_window and the like) ends the program; a window that is gone already is let be.
namespace simulator {

// What stands on the screen has a number, which is never given twice. 0 is nothing's.
using element_id_t = std::uint64_t;

// Starts an application with the short process name that the kernel keeps for it: the first 31
// bytes of what is given.
pid_t launch_application(const std::string& process_name);
// What proc_name tells of a process: the registered name as above; the first 15 bytes, of one that
// has given its registered name up; nothing, of another user's.
enum class told_name_e { registered, cut, none };
pid_t launch_application(const std::string& process_name, told_name_e told);
// Ends it with its windows and whatever else it shows.
void quit_application(pid_t application);
// From now on it answers no call for Accessibility: whoever asks it waits until it wakes or quits,
// at most for the time-out. What was asked of it meanwhile is not done.
void hang_application(pid_t application);
void wake_application(pid_t application);
// The time-out where the program sets none. Six seconds at the start.
void set_usual_messaging_timeout(std::chrono::milliseconds timeout);
std::optional<std::string> application_name(pid_t application);
// The one started first of those with that name.
std::optional<pid_t> application_named(const std::string& process_name);

struct window_options_t {
    bool has_zoom_button = true;
    bool presses_refused = false;     // of its buttons
    bool presses_unanswered = false;  // done all the same
    bool minimized_settable = true;
    bool full_screen_settable = true;
    bool sets_refused = false;              // although the attribute is settable
    bool control_knows_window = true;       // its control has "AXWindow"
    std::size_t groups_around_control = 0;  // elements between the window and its control
};

// Opens a window in front of all others. It has the three title bar buttons, can be minimised and
// made full screen, and holds one control that fills it, whose "AXWindow" names the window; the
// options say otherwise.
element_id_t open_window(pid_t application, const std::string& title, CGRect frame,
                         const window_options_t& options = {});
void close_window(element_id_t window);

// An element without a window, behind all windows.
element_id_t show_background(pid_t application, CGRect frame);

// What programs asked of windows, in order: "pressed AXCloseButton" or "set AXMinimized to true".
struct window_request_t {
    std::string application;  // its process name
    std::string title;
    std::string request;
    bool refused = false;
};
std::vector<window_request_t> window_requests();

}  // namespace simulator
