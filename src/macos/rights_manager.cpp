#include "macos/rights_manager.h"

#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/hid/IOHIDManager.h>
#include <IOKit/hid/IOHIDUsageTables.h>

#include <array>
#include <new>
#include <utility>

#include "common/thread.h"
#include "macos/cpf.h"
#include "macos/hid_matching.h"

bool check_accessibility() {
    const void* key = kAXTrustedCheckOptionPrompt;
    const void* value = kCFBooleanFalse;
    const auto options = cpf_t<CFDictionaryRef>::adopt(
        CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get()) != 0;
}

// Opens what the daemon will open, rather than only asking the system for the state of the grant:
// the answer is then that of the call that counts, and a user who has not decided yet is asked. The
// open itself asks the system for the grant, once for each keyboard and mouse; where none is
// attached it asks for nothing and succeeds. A device that another program has seized fails it.
bool check_input_monitoring() {
    try {
        const auto manager =
            created(IOHIDManagerCreate(kCFAllocatorDefault, kIOHIDOptionsTypeNone));
        {
            const auto keyboards = usage_matching(kHIDPage_GenericDesktop, kHIDUsage_GD_Keyboard);
            const auto mice = usage_matching(kHIDPage_GenericDesktop, kHIDUsage_GD_Mouse);
            std::array<const void*, 2> values{keyboards.get(), mice.get()};
            const auto matching = created(CFArrayCreate(kCFAllocatorDefault, values.data(),
                                                        values.size(), &kCFTypeArrayCallBacks));
            IOHIDManagerSetDeviceMatchingMultiple(manager.get(), matching.get());
        }
        const bool opened =
            IOHIDManagerOpen(manager.get(), kIOHIDOptionsTypeNone) == kIOReturnSuccess;
        if (opened) {
            IOHIDManagerClose(manager.get(), kIOHIDOptionsTypeNone);
        }
        return opened;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

permission_guard_t::permission_guard_t(std::chrono::seconds period, std::function<void()> on_lost)
    : _period(period),
      _on_lost(std::move(on_lost)),
      _last_state(_check_ax_permission()),
      _running(true) {
    _start();
}

permission_guard_t::permission_guard_t(permission_guard_t&& other) noexcept : _running(true) {
    _take_over(other);
}

permission_guard_t& permission_guard_t::operator=(permission_guard_t&& other) noexcept {
    if (this != &other) {
        _stop();
        // Where this guard had a thread, _stop() has cleared its _running, which is not set again:
        // the thread that is started for the watch taken over finds it so and ends at once. Meant:
        // a guard that its owner has once stopped calls nobody back by itself; poke_now() works.
        // One that was made from a guard without a thread has never been stopped, and watches.
        _take_over(other);
    }
    return *this;
}

// A thread works on the object that started it, so the other guard's must have ended before its
// callback is taken. Where the other has none, nothing is started.
void permission_guard_t::_take_over(permission_guard_t& other) noexcept {
    const bool was_watching = other._thread.joinable();
    other._join();
    _period = other._period;
    _on_lost = std::exchange(other._on_lost, nullptr);
    _last_state = other._last_state.load();
    if (was_watching) {
        _start();
    }
}

permission_guard_t::~permission_guard_t() {
    _stop();
}

void permission_guard_t::poke_now() {
    const bool trusted = _check_ax_permission();
    const bool was_trusted = _last_state.exchange(trusted);
    if (!trusted && was_trusted) {
        _invoke_on_main();
    }
}

bool permission_guard_t::_check_ax_permission() {
    return AXIsProcessTrusted() != 0;
}

void permission_guard_t::_start() {
    _thread = start_thread([this] { _monitor_loop(); });
}

void permission_guard_t::_join() noexcept {
    if (_thread.joinable()) {
        _running = false;
        _thread.join();
    }
}

void permission_guard_t::_stop() noexcept {
    _join();
    _on_lost = nullptr;
}

void permission_guard_t::_monitor_loop() {
    while (_running) {
        // A plain sleep rather than a wait that a stop can end: the stop comes once in the life of
        // the process and may take a period.
        std::this_thread::sleep_until(std::chrono::steady_clock::now() + _period);
        if (!_running) {
            return;
        }
        const bool trusted = _check_ax_permission();
        const bool was_trusted = _last_state.exchange(trusted);
        if (!trusted && was_trusted) {
            _invoke_on_main();
            return;
        }
    }
}

// Calls on whatever thread this is, the main one or not: what the daemon does with a loss (write
// the rights file, log, ask for the end) is safe from any thread, and must not wait for a main
// thread that may be busy with an event.
void permission_guard_t::_invoke_on_main() {
    if (_on_lost) {
        _on_lost();
    }
}
