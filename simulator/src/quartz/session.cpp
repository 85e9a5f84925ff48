#include "quartz/session.h"

#include <algorithm>
#include <chrono>

#include "accessibility/applications.h"
#include "core/permissions.h"

namespace simulator {
namespace {

std::optional<pid_t> application_of_front_window() {
    screen_t& all = screen();
    const std::lock_guard lock(all.mutex);
    const auto front = std::find_if(all.windows.begin(), all.windows.end(),
                                    [](const window_t& window) { return !window.minimized; });
    return front == all.windows.end() ? std::nullopt : std::optional(front->application);
}

pid_t receiver_of(const event_values_t& event) {
    const auto application =
        is_key_event(event.type) ? application_of_front_window() : application_at(event.location);
    return application.value_or(0);
}

event_record_t record_of(const event_values_t& event) {
    event_record_t record;
    record.type = event.type;
    record.location = event.location;
    record.flags = event.flags;
    record.button = event.button;
    record.click_state = event.click_state;
    record.key_code = event.key_code;
    record.scroll = event.scroll;
    record.scroll_wheels = event.scroll_wheels;
    return record;
}

}  // namespace

session_t& session_t::instance() {
    // Never destroyed: the desktop's thread goes on until the process is gone.
    static session_t& session = *new session_t;
    return session;
}

CGPoint session_t::pointer() const {
    const std::lock_guard lock(_mutex);
    return _pointer;
}

void session_t::set_pointer(CGPoint place) {
    const std::lock_guard lock(_mutex);
    _pointer = place;
}

std::uint64_t session_t::arrived(const event_values_t& event) {
    return event.type == kCGEventMouseMoved ? 0 : _note(event_origin_e::hardware, event);
}

void session_t::deliver(std::uint64_t number, const event_values_t& event) {
    const pid_t receiver = receiver_of(event);
    const std::lock_guard lock(_mutex);
    if (event_record_t* record = _record(number)) {
        const event_origin_e origin = record->origin;
        *record = record_of(event);
        record->number = number;
        record->origin = origin;
        record->outcome = event_outcome_e::delivered;
        record->delivered_to = receiver;
    }
}

void session_t::swallowed(std::uint64_t number) {
    const std::lock_guard lock(_mutex);
    if (event_record_t* record = _record(number)) {
        record->outcome = event_outcome_e::swallowed;
    }
}

void session_t::post(const event_values_t& event) {
    if (!granted(permission_e::accessibility)) {
        return;
    }
    if (!is_key_event(event.type) && event.type != kCGEventScrollWheel) {
        set_pointer(event.location);
    }
    deliver(_note(event_origin_e::posted, event), event);
    _posted.notify_all();
}

std::vector<event_record_t> session_t::events() const {
    const std::lock_guard lock(_mutex);
    return _events;
}

bool session_t::wait_for_posted(std::size_t count, std::chrono::milliseconds at_most) const {
    std::unique_lock lock(_mutex);
    return _posted.wait_for(lock, at_most, [this, count] {
        const auto posted =
            std::count_if(_events.begin(), _events.end(), [](const event_record_t& record) {
                return record.origin == event_origin_e::posted &&
                       record.outcome == event_outcome_e::delivered;
            });
        return static_cast<std::size_t>(posted) >= count;
    });
}

void session_t::forget_events() {
    const std::lock_guard lock(_mutex);
    _events.clear();
}

std::uint64_t session_t::_note(event_origin_e origin, const event_values_t& event) {
    const std::lock_guard lock(_mutex);
    _events.push_back(record_of(event));
    _events.back().origin = origin;
    return _events.back().number = ++_last_number;
}

// With the mutex held. Null when it has been forgotten.
event_record_t* session_t::_record(std::uint64_t number) {
    const auto record =
        std::find_if(_events.rbegin(), _events.rend(),
                     [number](const event_record_t& one) { return one.number == number; });
    return record == _events.rend() ? nullptr : &*record;
}

std::vector<event_record_t> events() {
    return session_t::instance().events();
}

bool wait_for_posted(std::size_t count, std::chrono::milliseconds at_most) {
    return session_t::instance().wait_for_posted(count, at_most);
}

void forget_events() {
    session_t::instance().forget_events();
}

}  // namespace simulator
