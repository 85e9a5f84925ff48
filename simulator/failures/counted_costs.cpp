#include "failures/counted_costs.h"

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hid/IOHIDManager.h>
#include <libproc.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <sstream>

#include "failures/daemon_asks.h"

namespace {

// A place for each kind, taken by the first of it: counting must not ask for memory itself.
struct cost_t {
    std::atomic<const char*> what = nullptr;
    std::atomic<std::size_t> times = 0;
};
std::array<cost_t, 32> g_costs;

std::atomic<bool> g_all_count = false;
thread_local bool g_this_counts = false;

}  // namespace

namespace counted_costs {

costs_t costs_of(const std::string& names) {
    costs_t all;
    std::istringstream words(names);
    for (std::string name; words >> name;) {
        ++all[name];
    }
    return all;
}

void begin(threads_e threads) {
    for (cost_t& cost : g_costs) {
        cost.times = 0;
    }
    g_this_counts = threads == threads_e::this_one;
    g_all_count = threads == threads_e::all;
}

costs_t end() {
    g_this_counts = false;
    g_all_count = false;
    costs_t counted;
    for (const cost_t& cost : g_costs) {
        if (cost.times > 0) {
            counted[cost.what.load()] += cost.times;
        }
    }
    return counted;
}

void count(const char* what) {
    if ((!g_this_counts && !g_all_count) || !daemon_asks()) {
        return;
    }
    for (cost_t& cost : g_costs) {
        const char* taken_by = nullptr;
        if (cost.what.compare_exchange_strong(taken_by, what) || taken_by == what) {
            ++cost.times;
            return;
        }
    }
    std::abort();  // more kinds than places: what is not counted must not look like nothing
}

}  // namespace counted_costs

// The linker sends the calls here (--wrap; the names stand in CMakeLists.txt as well).
// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are pieces of a definition.
#define QLX_COUNTED_AS(what, function, parameters, arguments) \
    decltype(function) __real_##function;                     \
    auto __wrap_##function parameters {                       \
        counted_costs::count(what);                           \
        return __real_##function arguments;                   \
    }
#define QLX_COUNTED(function, parameters, arguments) \
    QLX_COUNTED_AS(#function, function, parameters, arguments)

extern "C" {

QLX_COUNTED(IOHIDValueGetElement, (IOHIDValueRef value), (value))
QLX_COUNTED(IOHIDElementGetDevice, (IOHIDElementRef element), (element))
QLX_COUNTED(IOHIDElementGetUsagePage, (IOHIDElementRef element), (element))
QLX_COUNTED(IOHIDDeviceGetProperty, (IOHIDDeviceRef device, CFStringRef key), (device, key))
QLX_COUNTED(CGEventGetIntegerValueField, (CGEventRef event, CGEventField field), (event, field))
QLX_COUNTED(CGEventGetLocation, (CGEventRef event), (event))
QLX_COUNTED(AXUIElementCreateSystemWide, (), ())
QLX_COUNTED(AXUIElementSetMessagingTimeout, (AXUIElementRef element, float seconds),
            (element, seconds))
QLX_COUNTED(AXUIElementCopyElementAtPosition,
            (AXUIElementRef application, float x, float y, AXUIElementRef* element),
            (application, x, y, element))
QLX_COUNTED(AXUIElementGetPid, (AXUIElementRef element, pid_t* pid), (element, pid))
QLX_COUNTED(CFRelease, (CFTypeRef object), (object))
QLX_COUNTED(proc_name, (int pid, void* buffer, std::uint32_t size), (pid, buffer, size))
QLX_COUNTED_AS("lock", pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))

}  // extern "C"
// NOLINTEND(bugprone-macro-parentheses)
