#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "control/desktop.h"
#include "core/failure.h"
#include "core/message_source.h"
#include "core_foundation/run_loop.h"

namespace simulator {
namespace {

using clock_t = std::chrono::steady_clock;

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
        lock.lock();
    }
    if (!due.empty()) {
        lock.unlock();
        due.clear();
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

std::mutex& loops_mutex() {
    static auto* const mutex = new std::mutex;
    return *mutex;
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
