#include "quartz/event_server.h"

#include <CoreFoundation/CFRunLoop.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "control/desktop.h"
#include "hid/hid_manager.h"
#include "quartz/event_tap.h"
#include "quartz/session.h"

namespace simulator {
namespace {

// Messages to a source that no run loop has may wait forever; nobody waits for them.
bool all_called(const std::vector<std::shared_ptr<message_source_t>>& sources) {
    return std::all_of(sources.begin(), sources.end(), [](const auto& messages) {
        return !messages->scheduled() || messages->pending() == 0;
    });
}

// In this order: what is under way posts messages, and what they call posts no hardware's event.
bool settled() {
    return event_server_t::instance().idle() && all_called(tap_messages()) &&
           all_called(hid_messages());
}

// The events of a burst; null when there is none. On the desktop's thread.
std::vector<event_values_t>* gathered = nullptr;

void send_all(const std::vector<event_values_t>& events) {
    session_t& session = session_t::instance();
    std::vector<std::uint64_t> numbers;
    numbers.reserve(events.size());
    for (const event_values_t& event : events) {
        numbers.push_back(session.arrived(event));
    }
    pass_taps(events, [&](std::size_t index, const std::optional<event_values_t>& passed) {
        if (passed) {
            session.deliver(numbers[index], *passed);
        } else {
            session.swallowed(numbers[index]);
        }
    });
}

}  // namespace

event_server_t& event_server_t::instance() {
    // Never destroyed: the thread goes on until the process is gone, also when a callback ends it.
    static event_server_t& server = *new event_server_t;
    return server;
}

void event_server_t::carry_out(std::function<void()> action) {
    const std::lock_guard life(_life);
    {
        const std::lock_guard lock(_mutex);
        _actions.push_back(std::move(action));
    }
    _changed.notify_one();
    if (!_thread.joinable()) {
        _thread = std::thread([this] { _run(); });
    }
}

bool event_server_t::idle() const {
    const std::lock_guard lock(_mutex);
    return _actions.empty() && !_busy;
}

void event_server_t::stop() {
    const std::lock_guard life(_life);
    if (!_thread.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _changed.notify_one();
    _thread.join();
    _thread = {};
    const std::lock_guard lock(_mutex);
    _stopping = false;
}

void event_server_t::_run() {
    std::unique_lock lock(_mutex);
    while (true) {
        _changed.wait(lock, [this] { return _stopping || !_actions.empty(); });
        if (_actions.empty()) {
            return;
        }
        const auto action = std::move(_actions.front());
        _actions.pop_front();
        _busy = true;
        lock.unlock();
        action();
        lock.lock();
        _busy = false;
    }
}

void send(const event_values_t& event) {
    if (gathered != nullptr) {
        gathered->push_back(event);
    } else {
        send_all({event});
    }
}

void send_together(const std::function<void()>& acts) {
    std::vector<event_values_t> events;
    gathered = &events;
    acts();
    gathered = nullptr;
    send_all(events);
}

bool settle(run_loop_e run_loop, std::chrono::milliseconds at_most) {
    constexpr std::chrono::milliseconds pause(1);
    const auto deadline = std::chrono::steady_clock::now() + at_most;
    while (!settled()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        // Without anything in it, another thread's loop than the main one returns at once.
        if (run_loop == run_loop_e::leave ||
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, std::chrono::duration<double>(pause).count(),
                               true) == kCFRunLoopRunFinished) {
            std::this_thread::sleep_for(pause);
        }
    }
    return true;
}

void shut_down() {
    event_server_t::instance().stop();
}

}  // namespace simulator
