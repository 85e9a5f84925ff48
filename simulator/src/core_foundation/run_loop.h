#pragma once

#include <CoreFoundation/CFRunLoop.h>

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

// Where an item of a run loop is: the default mode alone, or the set of common modes, to which the
// default mode belongs. A program of this desktop runs no other mode.
struct places_t {
    bool in_default = false;
    bool in_common = false;

    bool anywhere() const { return in_default || in_common; }
};

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
    std::vector<run_loop_t*> loops;
};

class run_loop_timer_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop_timer;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    CFAbsoluteTime next_fire = 0;
    CFTimeInterval interval = 0;
    CFRunLoopTimerCallBack callout = nullptr;
    void* info = nullptr;
    bool valid = true;
    run_loop_t* loop = nullptr;
};

class run_loop_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop;
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    struct source_item_t {
        std::shared_ptr<message_source_t::state_t> state;
        places_t places;
        retained_t<run_loop_source_t> source;  // empty for a scheduled HID manager
    };
    struct timer_item_t {
        retained_t<run_loop_timer_t> timer;
        run_loop_timer_t* object = nullptr;
        places_t places;
    };

    std::condition_variable changed;
    std::vector<source_item_t> sources;
    std::vector<timer_item_t> timers;
    bool stopped = false;
    std::size_t runs = 0;  // CFRunLoopRun calls under way

    bool empty() const { return sources.empty() && timers.empty(); }
};

run_loop_t& loop_of(CFRunLoopRef reference, const char* function);

}  // namespace simulator
