#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

#include "control/applications.h"

namespace simulator {

// What Accessibility knows of something on the screen, or of an application as a whole.
struct element_t {
    pid_t application = 0;
    const char* role = "";
    element_id_t parent = 0;    // 0: it is the application
    element_id_t window = 0;    // that it stands in; its own for a window, 0 for none
    bool knows_window = false;  // it has "AXWindow"
};

struct window_t {
    element_id_t id = 0;
    pid_t application = 0;
    std::string title;
    CGRect frame{};
    window_options_t options;
    bool minimized = false;
    element_id_t control = 0;
    element_id_t minimize_button = 0;
    element_id_t zoom_button = 0;
    element_id_t close_button = 0;

    // The button that an attribute such as "AXCloseButton" stands for; null for another attribute.
    using button_t = element_id_t window_t::*;
    static button_t button_behind(std::string_view attribute);
    // The other way round; null when the element is none of its buttons.
    const char* attribute_of(element_id_t button) const;
};

// An element that belongs to no window.
struct windowless_t {
    element_id_t id = 0;
    CGRect frame{};
};

// The one screen with the applications on it. Member functions and fields: with the mutex held.
struct screen_t {
    std::mutex mutex;
    std::map<pid_t, std::string> applications;
    std::map<element_id_t, element_t> elements;
    std::vector<window_t> windows;  // the frontmost first
    std::vector<windowless_t> backgrounds;
    std::vector<window_request_t> requests;
    std::set<pid_t> hanging;
    std::condition_variable woken;  // or quit
    std::chrono::milliseconds usual_timeout = std::chrono::seconds(6);

    pid_t add_application(const std::string& process_name);
    element_id_t add(element_t element);
    element_id_t application_element(
        pid_t application) const;                    // ends the program if it is not there
    element_id_t frontmost_at(CGPoint place) const;  // 0: nothing is there
    window_t* window(element_id_t id);               // null when it has been closed
    void close(element_id_t window);
    void wake(pid_t application);

  private:
    element_id_t _last_id = 0;
    // Beyond what systems give to their own processes, so that no application has a real one's.
    pid_t _last_process = 5'000'000;
};

screen_t& screen();

// The application whose window or background is frontmost at a place, if there is one.
std::optional<pid_t> application_at(CGPoint place);

}  // namespace simulator
