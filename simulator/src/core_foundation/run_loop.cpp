#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "control/desktop.h"
#include "core/calls.h"
#include "core/failure.h"
#include "core/message_source.h"
#include "core_foundation/run_loop.h"

namespace simulator {
namespace {

// Static objects are made on the main thread.
const std::thread::id main_thread = std::this_thread::get_id();

CFRunLoopRef loop_of_thread(std::thread::id thread) {
    static auto* const mutex = new std::mutex;
    static auto* const loops = new std::map<std::thread::id, CFRunLoopRef>;
    const std::lock_guard lock(*mutex);
    CFRunLoopRef& loop = (*loops)[thread];
    if (loop == nullptr) {
        loop = static_cast<CFRunLoopRef>(const_cast<void*>(
            publish_constant(std::make_unique<run_loop_t>(thread == main_thread))));
    }
    return loop;
}

// The state whose oldest message is the oldest of all; null when there is none. Lock held.
std::shared_ptr<message_source_t::state_t> oldest_message(const run_loop_t& loop) {
    std::shared_ptr<message_source_t::state_t> oldest;
    for (const auto& item : loop.sources) {
        if (item.served && !item.state->queue.empty() &&
            (oldest == nullptr || item.state->queue.front().stamp < oldest->queue.front().stamp)) {
            oldest = item.state;
        }
    }
    return oldest;
}

bool call_one_message(const run_loop_t& loop, std::unique_lock<std::mutex>& lock) {
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

// A timer is never called inside its own callout, and the next time is counted on from there when
// the callout has ended.
void fire(run_loop_timer_t& timer, CFTypeRef reference, std::unique_lock<std::mutex>& lock) {
    const auto lent = static_cast<CFRunLoopTimerRef>(const_cast<void*>(reference));
    timer.firing = true;
    lock.unlock();
    timer.callout(lent, timer.info);
    if (timer.interval == timer.interval.zero()) {
        CFRunLoopTimerInvalidate(lent);
    }
    lock.lock();
    timer.firing = false;
    if (timer.valid) {
        const auto late = run_loop_clock_t::now() - timer.fire_time;
        auto moved = timer.loop->take_out(timer);
        timer.fire_time += timer.interval * (late / timer.interval + 1);
        timer.loop->insert(std::move(moved));
    }
}

bool fire_due_timers(const run_loop_t& loop, std::unique_lock<std::mutex>& lock) {
    std::vector<run_loop_t::timer_t> due;
    std::copy_if(loop.timers.begin(), loop.timers.end(), std::back_inserter(due),
                 [](const auto& timer) { return timer->due(); });
    if (due.empty()) {
        return false;
    }
    for (const auto& timer : due) {
        if (timer->due()) {  // still, after those before it
            fire(*timer.operator->(), timer.reference(), lock);
        }
    }
    lock.unlock();
    due.clear();
    lock.lock();
    return true;
}

run_loop_clock_t::time_point wake_time(const run_loop_t& loop,
                                       run_loop_clock_t::time_point deadline) {
    for (const auto& timer : loop.timers) {
        if (!timer->firing) {
            return std::min(timer->fire_time, deadline);
        }
    }
    return deadline;
}

// One pass: waits until one thing is there to serve, a stop, or the deadline. All due timers are
// one thing, and so is one message. True for a message. An item that another thread takes away is
// nothing to wake up for.
bool serve_one(run_loop_t& loop, run_loop_clock_t::time_point deadline,
               std::unique_lock<std::mutex>& lock) {
    while (!fire_due_timers(loop, lock)) {
        if (call_one_message(loop, lock)) {
            return true;
        }
        if (loop.stopped || run_loop_clock_t::now() >= deadline) {
            return false;
        }
        loop.changed.wait_until(lock, wake_time(loop, deadline));
    }
    return false;
}

CFRunLoopRunResult run(run_loop_t& loop, double seconds, bool one_source) {
    const auto deadline = run_loop_clock_t::now() + duration_of(seconds);
    std::unique_lock lock(loops_mutex());
    if (loop.empty()) {
        return kCFRunLoopRunFinished;
    }
    // A stop counts for the run that is under way: one that came before is lost, and one that an
    // outer run has got is not taken from it.
    const bool outer_stopped = std::exchange(loop.stopped, false);
    std::optional<CFRunLoopRunResult> result;
    while (!result) {
        const bool message_served = serve_one(loop, deadline, lock);
        // In this order: a stop does not show in a run whose time is over.
        if (message_served && one_source) {
            result = kCFRunLoopRunHandledSource;
        } else if (run_loop_clock_t::now() >= deadline) {
            result = kCFRunLoopRunTimedOut;
        } else if (loop.stopped) {
            result = kCFRunLoopRunStopped;
        } else if (loop.empty()) {
            result = kCFRunLoopRunFinished;
        }
    }
    loop.stopped = outer_stopped;
    return *result;
}

std::condition_variable& main_loop_started() {
    static auto* const condition = new std::condition_variable;
    return *condition;
}

}  // namespace

std::mutex& loops_mutex() {
    static auto* const mutex = new std::mutex;
    return *mutex;
}

run_loop_clock_t::duration duration_of(double seconds) {
    constexpr double longest = 16.0 * 365 * 24 * 3600;
    return std::chrono::duration_cast<run_loop_clock_t::duration>(
        std::chrono::duration<double>(std::min(longest, std::max(0.0, seconds))));
}

void run_loop_t::insert(timer_t timer) {
    const auto place = std::upper_bound(
        timers.begin(), timers.end(), timer->fire_time,
        [](const auto& time, const auto& other) { return time < other->fire_time; });
    timers.insert(place, std::move(timer));
}

run_loop_t::timer_t run_loop_t::take_out(const run_loop_timer_t& timer) {
    const auto place = std::find_if(timers.begin(), timers.end(), [&](const auto& known) {
        return known.operator->() == &timer;
    });
    timer_t taken = std::move(*place);
    timers.erase(place);
    return taken;
}

bool run_loop_t::empty() const {
    return !_of_main_thread && timers.empty() &&
           std::none_of(sources.begin(), sources.end(),
                        [](const auto& item) { return item.served; });
}

run_loop_t& loop_of(CFRunLoopRef reference, const char* function) {
    return object_of<run_loop_t>(reference, function);
}

bool wait_for_run_loop(std::chrono::milliseconds at_most) {
    run_loop_t& loop = loop_of(CFRunLoopGetMain(), "wait_for_run_loop");
    std::unique_lock lock(loops_mutex());
    return main_loop_started().wait_for(lock, at_most, [&] { return loop.runs > 0; });
}

}  // namespace simulator

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
    const simulator::call_t call(__func__);
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

}  // extern "C"
