#include "macos/rights_manager.h"

#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/hid/IOHIDKeys.h>
#include <IOKit/hid/IOHIDManager.h>
#include <IOKit/hid/IOHIDUsageTables.h>

#include <array>
#include <cstdint>
#include <utility>

#include "common/thread.h"
#include "macos/cpf.h"

namespace {

cpf_t<CFDictionaryRef> usage_matching(std::int32_t page, std::int32_t usage) {
    const auto page_number =
        cpf_t<CFNumberRef>::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &page));
    const auto usage_number =
        cpf_t<CFNumberRef>::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &usage));
    std::array<const void*, 2> keys{CFSTR(kIOHIDDeviceUsagePageKey), CFSTR(kIOHIDDeviceUsageKey)};
    std::array<const void*, 2> values{page_number.get(), usage_number.get()};
    return cpf_t<CFDictionaryRef>::adopt(
        CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

}  // namespace

bool check_accessibility() {
    const void* key = kAXTrustedCheckOptionPrompt;
    const void* value = kCFBooleanFalse;
    const auto options = cpf_t<CFDictionaryRef>::adopt(
        CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get()) != 0;
}

// The database of the system that holds the grants is not asked: it can lag behind what the system
// lets this process do.
bool check_input_monitoring() {
    const auto manager = cpf_t<IOHIDManagerRef>::adopt(
        IOHIDManagerCreate(kCFAllocatorDefault, kIOHIDOptionsTypeNone));
    if (!manager) {
        return false;
    }
    {
        const auto keyboards = usage_matching(kHIDPage_GenericDesktop, kHIDUsage_GD_Keyboard);
        const auto mice = usage_matching(kHIDPage_GenericDesktop, kHIDUsage_GD_Mouse);
        std::array<const void*, 2> values{keyboards.get(), mice.get()};
        const auto matching = cpf_t<CFArrayRef>::adopt(CFArrayCreate(
            kCFAllocatorDefault, values.data(), values.size(), &kCFTypeArrayCallBacks));
        IOHIDManagerSetDeviceMatchingMultiple(manager.get(), matching.get());
    }
    const bool opened = IOHIDManagerOpen(manager.get(), kIOHIDOptionsTypeNone) == kIOReturnSuccess;
    if (opened) {
        IOHIDManagerClose(manager.get(), kIOHIDOptionsTypeNone);
    }
    return opened;
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
        // _running is not set again: a guard that has been stopped stays stopped, also when it is
        // given another's watch, and the thread that this starts ends at once. Meant: nobody is
        // called back by a guard that its owner has once ended; poke_now() goes on to work.
        _take_over(other);
    }
    return *this;
}

// A thread works on the object that started it, so the other guard's must have ended before its
// callback is taken.
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
