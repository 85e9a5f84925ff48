#include "player/words.h"

#include <cstdio>

#include "control/applications.h"
#include "player/key_names.h"
#include "player/object_reader.h"
#include "player/story.h"

namespace simulator::player {

std::string list_text(const std::vector<std::string>& items) {
    return joined(items, "nothing");
}

std::string button_text(std::int64_t button) {
    switch (button) {
        case 0:
            return "left button";
        case 1:
            return "right button";
        case 2:
            return "middle button";
        case 3:
            return "side button 1";
        case 4:
            return "side button 2";
        default:
            return "button " + std::to_string(button + 1);
    }
}

std::string phase_text(phase_e phase) {
    switch (phase) {
        case phase_e::down:
            return "presses ";
        case phase_e::up:
            return "releases ";
        case phase_e::both:
            return "clicks ";
    }
    return "";
}

bool is_key(const event_record_t& event) {
    return event.type == kCGEventKeyDown || event.type == kCGEventKeyUp;
}

std::string event_text(const event_record_t& event) {
    if (is_key(event)) {
        return "key " + key_event_text(event.key_code, event.type == kCGEventKeyDown, event.flags);
    }
    switch (event.type) {
        case kCGEventScrollWheel:
            return event.scroll.continuous ? "trackpad scroll" : "wheel step";
        case kCGEventLeftMouseDown:
        case kCGEventRightMouseDown:
        case kCGEventOtherMouseDown:
            return button_text(event.button) + " down";
        case kCGEventLeftMouseUp:
        case kCGEventRightMouseUp:
        case kCGEventOtherMouseUp:
            return button_text(event.button) + " up";
        case kCGEventFlagsChanged:
            return "modifier key " + key_name(event.key_code);
        default:
            return button_text(event.button) + " dragged";
    }
}

std::string outcome_text(const event_record_t& event) {
    switch (event.outcome) {
        case event_outcome_e::under_way:
            return "is still under way";
        case event_outcome_e::swallowed:
            return "is taken by the daemon, no application sees it";
        case event_outcome_e::delivered:
            return "goes to " + application_name(event.delivered_to).value_or("nobody");
    }
    return "";
}

const char* permission_text(permission_e permission) {
    return permission == permission_e::accessibility ? "Accessibility" : "Input Monitoring";
}

void tell(const std::string& who, const std::string& what) {
    std::printf("%-8s %s\n", who.c_str(), what.c_str());
    std::fflush(stdout);
    note(who, what);
}

}  // namespace simulator::player
