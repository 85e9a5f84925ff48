#include "macos/executer_window.h"

#include <utility>

#include "common/log/log.h"
#include "macos/executer_pointer.h"
#include "macos/hit_test.h"

namespace {

// An attribute's value; null when it has none, cannot be read, or is of another type than asked
// for: applications answer with whatever they like.
template <typename ref_t>
cpf_t<ref_t> copy_attribute(AXUIElementRef element, CFStringRef name, CFTypeID type) {
    cpf_t<CFTypeRef> value;
    if (AXUIElementCopyAttributeValue(element, name, value.out()) != kAXErrorSuccess || !value ||
        CFGetTypeID(value.get()) != type) {
        return {};
    }
    return cpf_t<ref_t>::adopt(static_cast<ref_t>(value.release()));
}

// The process's time-out is short while a tap callback makes its hit test. An object that has one
// of its own does not go by that.
void keep_patience(const cpf_t<AXUIElementRef>& element) {
    AXUIElementSetMessagingTimeout(element.get(), platform_patience.count());
}

cpf_t<AXUIElementRef> copy_element(AXUIElementRef element, CFStringRef name) {
    auto found = copy_attribute<AXUIElementRef>(element, name, AXUIElementGetTypeID());
    if (found) {
        keep_patience(found);
    }
    return found;
}

bool is_window(const cpf_t<AXUIElementRef>& element) {
    const auto role =
        copy_attribute<CFStringRef>(element.get(), CFSTR("AXRole"), CFStringGetTypeID());
    return role && CFStringCompare(role.get(), CFSTR("AXWindow"), 0) == kCFCompareEqualTo;
}

bool is_settable(const cpf_t<AXUIElementRef>& window, CFStringRef name) {
    Boolean settable = 0;
    return AXUIElementIsAttributeSettable(window.get(), name, &settable) == kAXErrorSuccess &&
           settable != 0;
}

bool set_true(const cpf_t<AXUIElementRef>& window, CFStringRef name) {
    return AXUIElementSetAttributeValue(window.get(), name, kCFBooleanTrue) == kAXErrorSuccess;
}

// False also when the window has no such button.
bool press(const cpf_t<AXUIElementRef>& window, CFStringRef button_name) {
    const auto button = copy_element(window.get(), button_name);
    return button && AXUIElementPerformAction(button.get(), CFSTR("AXPress")) == kAXErrorSuccess;
}

bool minimize(const cpf_t<AXUIElementRef>& window) {
    return minimize_by([&] { return is_settable(window, CFSTR("AXMinimized")); },
                       [&] { return set_true(window, CFSTR("AXMinimized")); },
                       [&] { return press(window, CFSTR("AXMinimizeButton")); });
}

bool maximize(const cpf_t<AXUIElementRef>& window) {
    return maximize_by([&] { return press(window, CFSTR("AXZoomButton")); },
                       [&] { return is_settable(window, CFSTR("AXFullScreen")); },
                       [&] { return set_true(window, CFSTR("AXFullScreen")); });
}

// There is no other way: an application is not ended because its window has no close button.
bool close(const cpf_t<AXUIElementRef>& window) {
    return press(window, CFSTR("AXCloseButton"));
}

// False also when no window is there.
bool on_window_under_cursor(bool (*act)(const cpf_t<AXUIElementRef>&)) {
    const auto window = window_under_cursor();
    return window && act(window);
}

}  // namespace

cpf_t<AXUIElementRef> window_under_cursor() {
    const auto location = pointer_location();
    if (!location) {
        return {};
    }
    auto element = element_at(*location);
    if (!element) {
        return {};
    }
    keep_patience(element);
    if (auto window = copy_element(element.get(), CFSTR("AXWindow"))) {
        return window;
    }
    return nearest_window(std::move(element), is_window, [](const cpf_t<AXUIElementRef>& child) {
        return copy_element(child.get(), CFSTR("AXParent"));
    });
}

void minimize_window_under_cursor() {
    QLX_LOG_INFO("Minimize window (hovered)");
    if (!on_window_under_cursor(minimize)) {
        QLX_LOG_ERROR("AX minimize failed (check Accessibility perms?)");
    }
}

void maximize_window_under_cursor() {
    QLX_LOG_INFO("Maximize/Zoom window (hovered)");
    if (!on_window_under_cursor(maximize)) {
        QLX_LOG_ERROR("AX maximize/zoom failed");
    }
}

void close_window_under_cursor() {
    QLX_LOG_INFO("Close window (hovered)");
    if (!on_window_under_cursor(close)) {
        QLX_LOG_ERROR("AX close failed");
    }
}
