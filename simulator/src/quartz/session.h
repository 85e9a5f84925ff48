#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "quartz/event.h"

namespace simulator {

// The session: where events arrive behind the taps, whether the hardware or a program made them,
// and go on to applications. Remembers all of them. Any thread.
class session_t {
  public:
    static session_t& instance();

    CGPoint pointer() const;
    void set_pointer(CGPoint place);

    // Notes an event of the hardware before it meets the taps; the number that it is known by from
    // then on, 0 for one that nobody wants to read about (the pointer moved).
    std::uint64_t arrived(const event_values_t& event);
    // What became of it; `event` is as the taps left it.
    void deliver(std::uint64_t number, const event_values_t& event);
    void swallowed(std::uint64_t number);

    // An event of a program. Without Accessibility it is dropped, and the program not told.
    void post(const event_values_t& event);

    std::vector<event_record_t> events() const;
    bool wait_for_posted(std::size_t count, std::chrono::milliseconds at_most) const;
    void forget_events();

  private:
    session_t() = default;
    std::uint64_t _note(event_origin_e origin, const event_values_t& event);
    event_record_t* _record(std::uint64_t number);

    mutable std::mutex _mutex;
    mutable std::condition_variable _posted;
    CGPoint _pointer{};
    std::uint64_t _last_number = 0;
    std::vector<event_record_t> _events;
};

}  // namespace simulator
