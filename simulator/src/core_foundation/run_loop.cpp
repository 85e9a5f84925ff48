#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "control/desktop.h"
#include "core/failure.h"
#include "core/message_source.h"
#include "core_foundation/run_loop.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

using clock_t = std::chrono::steady_clock;

// Guards every run loop, source and timer. Never held while the program's code runs or an object is
// released.
std::mutex& loops_mutex() {
    static auto* const mutex = new std::mutex;
    return *mutex;
}

// Where an item of a run loop is: the default mode alone, or the set of common modes, to which the
// default mode belongs. A program of this desktop runs no other mode.
struct places_t {
    bool in_default = false;
    bool in_common = false;

    bool anywhere() const { return in_default || in_common; }
};

bool& place(places_t& places, CFRunLoopMode mode, const char* function) {
    if (mode == kCFRunLoopDefaultMode) {
        return places.in_default;
    }
    if (mode == kCFRunLoopCommonModes) {
        return places.in_common;
    }
    not_modelled(function, "a mode other than default and common");
}

class run_loop_t;

struct pending_t {
    std::uint64_t stamp = 0;
    message_source_t::message_t message;
};

}  // namespace

struct message_source_t::state_t {
    std::deque<pending_t> queue;
    std::size_t running = 0;
    bool closed = false;
    std::vector<run_loop_t*> loops;
};

namespace {

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

run_loop_t& loop_of(CFRunLoopRef reference, const char* function) {
    return object_of<run_loop_t>(reference, function);
}

CFRunLoopRef loop_of_thread(std::thread::id thread) {
    static auto* const mutex = new std::mutex;
    static auto* const loops = new std::map<std::thread::id, CFRunLoopRef>;
    const std::lock_guard lock(*mutex);
    CFRunLoopRef& loop = (*loops)[thread];
    if (loop == nullptr) {
        loop = static_cast<CFRunLoopRef>(
            const_cast<void*>(publish_constant(std::make_unique<run_loop_t>())));
    }
    return loop;
}

// Static objects are made on the main thread.
const std::thread::id main_thread = std::this_thread::get_id();

std::uint64_t next_stamp() {
    static std::uint64_t stamp = 0;
    return ++stamp;
}

// Takes the source out of one loop; what the loop retained goes to `dropped`, to be released after
// the lock.
void forget_source(run_loop_t& loop, const std::shared_ptr<message_source_t::state_t>& state,
                   std::vector<retained_t<run_loop_source_t>>& dropped) {
    const auto item = std::find_if(loop.sources.begin(), loop.sources.end(),
                                   [&](const auto& known) { return known.state == state; });
    if (item != loop.sources.end()) {
        dropped.push_back(std::move(item->source));
        loop.sources.erase(item);
    }
    std::erase(state->loops, &loop);
    loop.changed.notify_all();
}

void add_source(run_loop_t& loop, const std::shared_ptr<message_source_t::state_t>& state,
                CFRunLoopMode mode, CFTypeRef source, const char* function) {
    const std::lock_guard lock(loops_mutex());
    if (state->closed) {
        return;  // an invalid source is not added
    }
    auto item = std::find_if(loop.sources.begin(), loop.sources.end(),
                             [&](const auto& known) { return known.state == state; });
    if (item == loop.sources.end()) {
        loop.sources.push_back({state, {}, retained_t<run_loop_source_t>(source)});
        item = std::prev(loop.sources.end());
        state->loops.push_back(&loop);
    }
    place(item->places, mode, function) = true;
    loop.changed.notify_all();
}

void remove_source(run_loop_t& loop, const std::shared_ptr<message_source_t::state_t>& state,
                   CFRunLoopMode mode, const char* function) {
    std::vector<retained_t<run_loop_source_t>> dropped;
    const std::lock_guard lock(loops_mutex());
    const auto item = std::find_if(loop.sources.begin(), loop.sources.end(),
                                   [&](const auto& known) { return known.state == state; });
    if (item == loop.sources.end()) {
        return;
    }
    place(item->places, mode, function) = false;
    if (!item->places.anywhere()) {
        forget_source(loop, state, dropped);
    }
}

// The state whose oldest message is the oldest of all; null when there is none. Lock held.
std::shared_ptr<message_source_t::state_t> oldest_message(const run_loop_t& loop) {
    std::shared_ptr<message_source_t::state_t> oldest;
    for (const auto& item : loop.sources) {
        if (!item.state->queue.empty() &&
            (oldest == nullptr || item.state->queue.front().stamp < oldest->queue.front().stamp)) {
            oldest = item.state;
        }
    }
    return oldest;
}

bool call_one_message(run_loop_t& loop, std::unique_lock<std::mutex>& lock) {
    const auto state = oldest_message(loop);
    if (state == nullptr) {
        return false;
    }
    message_source_t::message_t message = std::move(state->queue.front().message);
    state->queue.pop_front();
    ++state->running;
    lock.unlock();
    message();
    message = nullptr;  // what it holds is let go before it counts as done
    lock.lock();
    --state->running;
    return true;
}

void fire_due_timers(run_loop_t& loop, std::unique_lock<std::mutex>& lock) {
    const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
    std::vector<retained_t<run_loop_timer_t>> due;
    for (const auto& item : loop.timers) {
        if (item.object->next_fire <= now) {
            due.push_back(item.timer);
        }
    }
    for (auto& timer : due) {
        run_loop_timer_t& object = *timer.operator->();
        if (!object.valid) {
            continue;  // a timer before it invalidated this one
        }
        const bool once = object.interval <= 0;
        if (!once) {
            const double missed = std::floor((now - object.next_fire) / object.interval);
            object.next_fire += object.interval * (missed + 1);
        }
        const auto reference = static_cast<CFRunLoopTimerRef>(const_cast<void*>(timer.reference()));
        lock.unlock();
        object.callout(reference, object.info);
        if (once) {
            CFRunLoopTimerInvalidate(reference);
        }
        timer = {};
        lock.lock();
    }
}

clock_t::time_point wake_time(const run_loop_t& loop, clock_t::time_point deadline) {
    const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
    for (const auto& item : loop.timers) {
        const double seconds = std::clamp(item.object->next_fire - now, 0.0, 3600.0);
        deadline =
            std::min(deadline, clock_t::now() + std::chrono::duration_cast<clock_t::duration>(
                                                    std::chrono::duration<double>(seconds)));
    }
    return deadline;
}

CFRunLoopRunResult run(run_loop_t& loop, double seconds, bool one_source) {
    constexpr double longest = 365.0 * 24 * 3600;
    const auto deadline =
        clock_t::now() + std::chrono::duration_cast<clock_t::duration>(
                             std::chrono::duration<double>(std::clamp(seconds, 0.0, longest)));
    std::unique_lock lock(loops_mutex());
    // A stop counts for the run that is under way: one that came before is lost, and one that an
    // outer run has got is not taken from it.
    const bool outer_stopped = std::exchange(loop.stopped, false);
    CFRunLoopRunResult result = kCFRunLoopRunFinished;
    while (true) {
        if (loop.stopped) {
            result = kCFRunLoopRunStopped;
            break;
        }
        if (loop.empty()) {
            break;
        }
        fire_due_timers(loop, lock);
        if (call_one_message(loop, lock)) {
            if (one_source) {
                result = kCFRunLoopRunHandledSource;
                break;
            }
        } else if (!loop.stopped && !loop.empty() && clock_t::now() < deadline) {
            loop.changed.wait_until(lock, wake_time(loop, deadline));
        }
        if (clock_t::now() >= deadline && !loop.stopped) {
            result = kCFRunLoopRunTimedOut;
            break;
        }
    }
    loop.stopped = outer_stopped;
    return result;
}

std::condition_variable& main_loop_started() {
    static auto* const condition = new std::condition_variable;
    return *condition;
}

}  // namespace

message_source_t::message_source_t(std::shared_ptr<state_t> state) : _state(std::move(state)) {}

std::shared_ptr<message_source_t> message_source_t::make() {
    return std::shared_ptr<message_source_t>(new message_source_t(std::make_shared<state_t>()));
}

bool message_source_t::post(message_t message) {
    const std::lock_guard lock(loops_mutex());
    if (_state->closed) {
        return false;
    }
    _state->queue.push_back({next_stamp(), std::move(message)});
    for (run_loop_t* const loop : _state->loops) {
        loop->changed.notify_all();
    }
    return true;
}

void message_source_t::close() {
    std::deque<pending_t> unread;
    std::vector<retained_t<run_loop_source_t>> dropped;
    const std::lock_guard lock(loops_mutex());
    _state->closed = true;
    unread.swap(_state->queue);
    while (!_state->loops.empty()) {
        forget_source(*_state->loops.back(), _state, dropped);
    }
}

void message_source_t::add_to(CFRunLoopRef loop, CFRunLoopMode mode, const char* function) {
    add_source(loop_of(loop, function), _state, mode, nullptr, function);
}

void message_source_t::remove_from(CFRunLoopRef loop, CFRunLoopMode mode, const char* function) {
    remove_source(loop_of(loop, function), _state, mode, function);
}

bool message_source_t::scheduled() const {
    const std::lock_guard lock(loops_mutex());
    return !_state->loops.empty();
}

std::size_t message_source_t::pending() const {
    const std::lock_guard lock(loops_mutex());
    return _state->queue.size() + _state->running;
}

bool wait_for_run_loop(std::chrono::milliseconds at_most) {
    run_loop_t& loop = loop_of(CFRunLoopGetMain(), "wait_for_run_loop");
    std::unique_lock lock(loops_mutex());
    return main_loop_started().wait_for(lock, at_most, [&] { return loop.runs > 0; });
}

}  // namespace simulator

using simulator::object_of;

extern "C" {

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

CFRunLoopRef CFRunLoopGetCurrent() {
    return simulator::loop_of_thread(std::this_thread::get_id());
}

CFRunLoopRef CFRunLoopGetMain() {
    return simulator::loop_of_thread(simulator::main_thread);
}

void CFRunLoopRun() {
    auto& loop = simulator::loop_of(CFRunLoopGetCurrent(), __func__);
    {
        const std::lock_guard lock(simulator::loops_mutex());
        ++loop.runs;
        simulator::main_loop_started().notify_all();
    }
    constexpr double for_ever = 1.0e10;
    CFRunLoopRunResult result = kCFRunLoopRunTimedOut;
    while (result != kCFRunLoopRunStopped && result != kCFRunLoopRunFinished) {
        result = simulator::run(loop, for_ever, false);
    }
    const std::lock_guard lock(simulator::loops_mutex());
    --loop.runs;
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean return_after_source_handled) {
    if (mode != kCFRunLoopDefaultMode) {
        simulator::not_modelled(__func__, "a mode other than the default");
    }
    return simulator::run(simulator::loop_of(CFRunLoopGetCurrent(), __func__), seconds,
                          return_after_source_handled != 0);
}

void CFRunLoopStop(CFRunLoopRef loop) {
    auto& target = simulator::loop_of(loop, __func__);
    const std::lock_guard lock(simulator::loops_mutex());
    target.stopped = true;
    target.changed.notify_all();
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const auto& object = object_of<simulator::run_loop_source_t>(source, __func__);
    simulator::add_source(simulator::loop_of(loop, __func__), object.messages()->state(), mode,
                          source, __func__);
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const auto& object = object_of<simulator::run_loop_source_t>(source, __func__);
    simulator::remove_source(simulator::loop_of(loop, __func__), object.messages()->state(), mode,
                             __func__);
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fire_date,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
    simulator::expect_default_allocator(allocator, __func__);
    if (flags != 0 || order != 0) {
        simulator::not_modelled(__func__, "flags or an order");
    }
    if (callout == nullptr) {
        simulator::misuse(__func__, "there is no callout");
    }
    if (context != nullptr &&
        (context->version != 0 || context->retain != nullptr || context->release != nullptr ||
         context->copyDescription != nullptr)) {
        simulator::not_modelled(__func__, "a context with functions");
    }
    if (simulator::shall_fail(__func__)) {
        return nullptr;
    }
    auto timer = std::make_unique<simulator::run_loop_timer_t>();
    timer->next_fire = fire_date;
    timer->interval = interval;
    timer->callout = callout;
    timer->info = context == nullptr ? nullptr : context->info;
    return static_cast<CFRunLoopTimerRef>(
        const_cast<void*>(simulator::publish(std::move(timer), __func__)));
}

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
    auto& target = simulator::loop_of(loop, __func__);
    auto& object = object_of<simulator::run_loop_timer_t>(timer, __func__);
    const std::lock_guard lock(simulator::loops_mutex());
    if (!object.valid) {
        return;
    }
    if (object.loop != nullptr && object.loop != &target) {
        simulator::misuse(__func__, "the timer is in another run loop already");
    }
    auto item = std::find_if(target.timers.begin(), target.timers.end(),
                             [&](const auto& known) { return known.object == &object; });
    if (item == target.timers.end()) {
        target.timers.push_back(
            {simulator::retained_t<simulator::run_loop_timer_t>(timer), &object, {}});
        item = std::prev(target.timers.end());
        object.loop = &target;
    }
    simulator::place(item->places, mode, __func__) = true;
    target.changed.notify_all();
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
    auto& object = object_of<simulator::run_loop_timer_t>(timer, __func__);
    simulator::retained_t<simulator::run_loop_timer_t> dropped;
    const std::lock_guard lock(simulator::loops_mutex());
    object.valid = false;
    if (simulator::run_loop_t* const loop = std::exchange(object.loop, nullptr)) {
        const auto item = std::find_if(loop->timers.begin(), loop->timers.end(),
                                       [&](const auto& known) { return known.object == &object; });
        dropped = std::move(item->timer);
        loop->timers.erase(item);
        loop->changed.notify_all();
    }
}

}  // extern "C"
