#include "macos/hit_test.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace {

// A hit test goes through the system-wide element, and a time-out set on that is the whole
// process's: there is none for one call or one thread. So it is short only while a tap callback
// makes its hit test, and a window action's that begins in that time notices and asks again.
std::mutex short_timeout;  // held while it is in force
std::atomic<unsigned> times_short{0};

// What a time-out is set to for the platform's own.
constexpr float no_timeout = 0.0F;

AXError copy_element_at(const cpf_t<AXUIElementRef>& everything, CGPoint place,
                        cpf_t<AXUIElementRef>& element) {
    return AXUIElementCopyElementAtPosition(everything.get(), static_cast<float>(place.x),
                                            static_cast<float>(place.y), element.out());
}

}  // namespace

cpf_t<AXUIElementRef> element_at(CGPoint place) {
    const auto everything = cpf_t<AXUIElementRef>::adopt(AXUIElementCreateSystemWide());
    if (!everything) {
        return {};
    }
    const auto patience_ends = std::chrono::steady_clock::now() + platform_patience;
    while (true) {
        unsigned before = 0;
        {
            const std::lock_guard lock(short_timeout);  // a callback's hit test is soon over
            before = times_short;
        }
        cpf_t<AXUIElementRef> element;
        const AXError error = copy_element_at(everything, place, element);
        const bool cut_short = error == kAXErrorCannotComplete && times_short != before &&
                               std::chrono::steady_clock::now() < patience_ends;
        if (!cut_short) {
            return error == kAXErrorSuccess ? std::move(element) : cpf_t<AXUIElementRef>();
        }
    }
}

cpf_t<AXUIElementRef> element_at_in_callback(CGPoint place) {
    const auto everything = cpf_t<AXUIElementRef>::adopt(AXUIElementCreateSystemWide());
    if (!everything) {
        return {};
    }
    const std::lock_guard lock(short_timeout);
    ++times_short;
    AXUIElementSetMessagingTimeout(everything.get(), callback_patience.count());
    cpf_t<AXUIElementRef> element;
    const AXError error = copy_element_at(everything, place, element);
    AXUIElementSetMessagingTimeout(everything.get(), no_timeout);
    return error == kAXErrorSuccess ? std::move(element) : cpf_t<AXUIElementRef>();
}
