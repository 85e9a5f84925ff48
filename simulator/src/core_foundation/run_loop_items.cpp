#include <CoreFoundation/CFRunLoop.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "core/calls.h"
#include "core/failure.h"
#include "core/message_source.h"
#include "core_foundation/run_loop.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

std::uint64_t next_stamp() {
    static std::uint64_t stamp = 0;
    return ++stamp;
}

using state_ref_t = std::shared_ptr<message_source_t::state_t>;

bool is_common(CFRunLoopMode mode, const char* function) {
    if (mode != kCFRunLoopDefaultMode && mode != kCFRunLoopCommonModes) {
        not_modelled(function, "a mode other than default and common");
    }
    return mode == kCFRunLoopCommonModes;
}

auto item_of(run_loop_t& loop, const state_ref_t& state) {
    return std::find_if(loop.sources.begin(), loop.sources.end(),
                        [&](const auto& known) { return known.state == state; });
}

// Takes the source out of the default mode, and its item out of the loop when nothing keeps it
// there. Returns what the loop retained, to be released after the lock.
retained_t<run_loop_source_t> stop_serving(run_loop_t& loop,
                                           std::vector<run_loop_t::source_item_t>::iterator item) {
    item->served = false;
    std::erase(item->state->loops, &loop);
    retained_t<run_loop_source_t> dropped;
    if (!item->common) {
        dropped = std::move(item->source);
        loop.sources.erase(item);
    }
    return dropped;
}

void add_source(run_loop_t& loop, const state_ref_t& state, CFRunLoopMode mode, CFTypeRef source,
                const char* function) {
    const bool common = is_common(mode, function);
    const std::lock_guard lock(loops_mutex());
    if (state->closed) {
        return;  // an invalid source is not added
    }
    auto item = item_of(loop, state);
    if (item == loop.sources.end()) {
        loop.sources.push_back({state, retained_t<run_loop_source_t>(source)});
        item = std::prev(loop.sources.end());
    }
    if (!std::exchange(item->served, true)) {
        state->loops.push_back(&loop);
    }
    item->common = item->common || common;
    loop.changed.notify_all();
}

// What was never added to the common modes is not taken from them; what was, leaves the default
// mode with them, also when it had been added to that one too.
void remove_source(run_loop_t& loop, const state_ref_t& state, CFRunLoopMode mode,
                   const char* function) {
    const bool common = is_common(mode, function);
    retained_t<run_loop_source_t> dropped;
    const std::lock_guard lock(loops_mutex());
    const auto item = item_of(loop, state);
    if (item == loop.sources.end() || (common && !item->common)) {
        return;
    }
    item->common = item->common && !common;
    dropped = stop_serving(loop, item);
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
        run_loop_t& loop = *_state->loops.back();
        const auto item = item_of(loop, _state);
        item->common = false;
        dropped.push_back(stop_serving(loop, item));
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

}  // namespace simulator

using simulator::object_of;

extern "C" {

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const auto& object = object_of<simulator::run_loop_source_t>(source, __func__);
    simulator::add_source(simulator::loop_of(loop, __func__), object.messages()->state(), mode,
                          source, __func__);
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const simulator::call_t call(__func__);
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
    timer->fire_time = simulator::run_loop_clock_t::now() +
                       simulator::duration_of(fire_date - CFAbsoluteTimeGetCurrent());
    timer->interval = simulator::duration_of(interval);
    timer->callout = callout;
    timer->info = context == nullptr ? nullptr : context->info;
    return static_cast<CFRunLoopTimerRef>(
        const_cast<void*>(simulator::publish(std::move(timer), __func__)));
}

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
    auto& target = simulator::loop_of(loop, __func__);
    auto& object = object_of<simulator::run_loop_timer_t>(timer, __func__);
    simulator::is_common(mode, __func__);
    const std::lock_guard lock(simulator::loops_mutex());
    if (object.loop != nullptr && object.loop != &target) {
        simulator::misuse(__func__, "the timer is in another run loop already");
    }
    if (object.valid && object.loop == nullptr) {
        object.loop = &target;
        target.insert(simulator::run_loop_t::timer_t(timer));
        target.changed.notify_all();
    }
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
    auto& object = object_of<simulator::run_loop_timer_t>(timer, __func__);
    simulator::run_loop_t::timer_t dropped;
    const std::lock_guard lock(simulator::loops_mutex());
    object.valid = false;
    if (simulator::run_loop_t* const loop = std::exchange(object.loop, nullptr)) {
        dropped = loop->take_out(object);
    }
}

}  // extern "C"
