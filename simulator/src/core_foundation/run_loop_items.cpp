#include <CoreFoundation/CFRunLoop.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

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

bool& place(places_t& places, CFRunLoopMode mode, const char* function) {
    if (mode == kCFRunLoopDefaultMode) {
        return places.in_default;
    }
    if (mode == kCFRunLoopCommonModes) {
        return places.in_common;
    }
    not_modelled(function, "a mode other than default and common");
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

}  // namespace simulator

using simulator::object_of;

extern "C" {

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
