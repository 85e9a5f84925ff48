#include "accessibility/applications.h"

#include <algorithm>
#include <array>
#include <utility>

#include "core/failure.h"

namespace simulator {
namespace {

// The kernel keeps so much of a name.
constexpr std::size_t process_name_bytes = 31;

std::string kept_name(const std::string& name) {
    return name.substr(0, process_name_bytes);
}

bool covers(const CGRect& frame, CGPoint place) {
    return place.x >= frame.origin.x && place.x < frame.origin.x + frame.size.width &&
           place.y >= frame.origin.y && place.y < frame.origin.y + frame.size.height;
}

struct button_name_t {
    const char* attribute;
    window_t::button_t button;
};
constexpr std::array<button_name_t, 3> button_names{{
    {"AXMinimizeButton", &window_t::minimize_button},
    {"AXZoomButton", &window_t::zoom_button},
    {"AXCloseButton", &window_t::close_button},
}};

}  // namespace

screen_t& screen() {
    static auto* const one = new screen_t;  // outlives every static object of the program
    return *one;
}

window_t::button_t window_t::button_behind(std::string_view attribute) {
    for (const button_name_t& name : button_names) {
        if (name.attribute == attribute) {
            return name.button;
        }
    }
    return nullptr;
}

const char* window_t::attribute_of(element_id_t button) const {
    for (const button_name_t& name : button_names) {
        if (this->*name.button == button) {
            return name.attribute;
        }
    }
    return nullptr;
}

pid_t screen_t::add_application(const std::string& process_name) {
    applications.emplace(++_last_process, kept_name(process_name));
    element_t element;
    element.application = _last_process;
    element.role = "AXApplication";
    add(element);
    return _last_process;
}

element_id_t screen_t::add(element_t element) {
    elements.emplace(++_last_id, element);
    return _last_id;
}

element_id_t screen_t::application_element(pid_t application) const {
    for (const auto& [id, element] : elements) {
        if (element.application == application && element.parent == 0) {
            return id;
        }
    }
    misuse("simulator control", "there is no such application");
}

element_id_t screen_t::frontmost_at(CGPoint place) const {
    for (const window_t& each : windows) {
        if (!each.minimized && covers(each.frame, place)) {
            return each.control;
        }
    }
    const auto background = std::ranges::find_if(
        backgrounds, [&](const windowless_t& shown) { return covers(shown.frame, place); });
    return background != backgrounds.end() ? background->id : 0;
}

window_t* screen_t::window(element_id_t id) {
    const auto found = std::ranges::find(windows, id, &window_t::id);
    return found != windows.end() ? &*found : nullptr;
}

void screen_t::close(element_id_t id) {
    if (window(id) != nullptr) {
        std::erase_if(windows, [&](const window_t& each) { return each.id == id; });
        std::erase_if(elements, [&](const auto& each) { return each.second.window == id; });
    }
}

void screen_t::wake(pid_t application) {
    hanging.erase(application);
    woken.notify_all();
}

pid_t launch_application(const std::string& process_name) {
    const std::lock_guard lock(screen().mutex);
    return screen().add_application(process_name);
}

void quit_application(pid_t application) {
    const std::lock_guard lock(screen().mutex);
    screen().applications.erase(application);
    screen().wake(application);
    std::erase_if(screen().windows,
                  [&](const window_t& each) { return each.application == application; });
    std::erase_if(screen().elements,
                  [&](const auto& each) { return each.second.application == application; });
    std::erase_if(screen().backgrounds,
                  [](const windowless_t& shown) { return !screen().elements.contains(shown.id); });
}

void hang_application(pid_t application) {
    const std::lock_guard lock(screen().mutex);
    screen().application_element(application);
    screen().hanging.insert(application);
}

void wake_application(pid_t application) {
    const std::lock_guard lock(screen().mutex);
    screen().wake(application);
}

void set_usual_messaging_timeout(std::chrono::milliseconds timeout) {
    const std::lock_guard lock(screen().mutex);
    screen().usual_timeout = timeout;
}

std::optional<std::string> application_name(pid_t application) {
    const std::lock_guard lock(screen().mutex);
    const auto found = screen().applications.find(application);
    return found != screen().applications.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<pid_t> application_named(const std::string& process_name) {
    const std::lock_guard lock(screen().mutex);
    for (const auto& [pid, name] : screen().applications) {
        if (name == kept_name(process_name)) {
            return pid;
        }
    }
    return std::nullopt;
}

element_id_t open_window(pid_t application, const std::string& title, CGRect frame,
                         const window_options_t& options) {
    const std::lock_guard lock(screen().mutex);
    element_t element;
    element.application = application;
    element.role = "AXWindow";
    element.parent = screen().application_element(application);
    window_t opened;
    opened.id = screen().add(element);
    screen().elements[opened.id].window = opened.id;
    opened.application = application;
    opened.title = title;
    opened.frame = frame;
    opened.options = options;

    element.window = opened.id;
    element.parent = opened.id;
    element.knows_window = true;
    element.role = "AXButton";
    opened.minimize_button = screen().add(element);
    opened.zoom_button = options.has_zoom_button ? screen().add(element) : 0;
    opened.close_button = screen().add(element);

    element.knows_window = options.control_knows_window;
    element.role = "AXGroup";
    for (std::size_t group = 0; group < options.groups_around_control; ++group) {
        element.parent = screen().add(element);
    }
    element.role = "AXTextArea";
    opened.control = screen().add(element);
    screen().windows.insert(screen().windows.begin(), opened);
    return opened.id;
}

void close_window(element_id_t window) {
    const std::lock_guard lock(screen().mutex);
    screen().close(window);
}

element_id_t show_background(pid_t application, CGRect frame) {
    const std::lock_guard lock(screen().mutex);
    element_t element;
    element.application = application;
    element.role = "AXGroup";
    element.parent = screen().application_element(application);
    const element_id_t id = screen().add(element);
    screen().backgrounds.insert(screen().backgrounds.begin(), {id, frame});
    return id;
}

std::optional<pid_t> application_at(CGPoint place) {
    const std::lock_guard lock(screen().mutex);
    const element_id_t there = screen().frontmost_at(place);
    return there != 0 ? std::optional(screen().elements.at(there).application) : std::nullopt;
}

std::vector<window_request_t> window_requests() {
    const std::lock_guard lock(screen().mutex);
    return screen().requests;
}

}  // namespace simulator
