#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "core/message_source.h"
#include "core/object.h"
#include "core_foundation/mach_port.h"

// The inside of run loops: run_loop.cpp runs them, run_loop_items.cpp adds and removes what they
// serve.
namespace simulator {

// Guards every run loop, source and timer. Never held while the program's code runs or an object is
// released.
std::mutex& loops_mutex();

// What a program adds to a run loop in order to get the messages of a port. It keeps the port.
class run_loop_source_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop_source;
    explicit run_loop_source_t(CFTypeRef port) : _port(port), _messages(_port->messages()) {}

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }
    const std::shared_ptr<message_source_t>& messages() const { return _messages; }

  private:
    retained_t<mach_port_t> _port;
    std::shared_ptr<message_source_t> _messages;
};

class run_loop_t;

struct pending_t {
    std::uint64_t stamp = 0;
    message_source_t::message_t message;
};

struct message_source_t::state_t {
    std::deque<pending_t> queue;
    std::size_t running = 0;
    bool closed = false;
    std::vector<run_loop_t*> loops;  // that serve it
};

using run_loop_clock_t = std::chrono::steady_clock;

// Seconds as the loops count them: sixteen years at most, none for what is negative or no number.
run_loop_clock_t::duration duration_of(double seconds);

class run_loop_timer_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop_timer;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    bool due() const { return valid && !firing && fire_time <= run_loop_clock_t::now(); }

    run_loop_clock_t::time_point fire_time;
    run_loop_clock_t::duration interval{};  // zero: it fires once
    CFRunLoopTimerCallBack callout = nullptr;
    void* info = nullptr;
    bool valid = true;
    bool firing = false;
    run_loop_t* loop = nullptr;
};

// It has the default mode and the set of common modes, of which the default mode is the only one:
// whatever is added to either is in the default mode.
class run_loop_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop;
    explicit run_loop_t(bool of_main_thread) : _of_main_thread(of_main_thread) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    struct source_item_t {
        std::shared_ptr<message_source_t::state_t> state;
        retained_t<run_loop_source_t> source;  // empty for a scheduled HID manager
        bool served = false;                   // is in the default mode
        bool common = false;                   // was added to the common modes
    };
    using timer_t = retained_t<run_loop_timer_t>;

    // Puts a timer among the others, after those that fire at the same time.
    void insert(timer_t timer);
    timer_t take_out(const run_loop_timer_t& timer);

    // The main thread's loop also serves the main dispatch queue, which is always there.
    bool empty() const;

    std::condition_variable changed;
    std::vector<source_item_t> sources;
    std::vector<timer_t> timers;  // by their fire time
    bool stopped = false;         // the run that is under way
    std::size_t runs = 0;         // CFRunLoopRun calls under way

  private:
    const bool _of_main_thread;
};

run_loop_t& loop_of(CFRunLoopRef reference, const char* function);

}  // namespace simulator
