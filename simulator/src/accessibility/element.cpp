#include <ApplicationServices/ApplicationServices.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "accessibility/applications.h"
#include "control/permissions.h"
#include "core/calls.h"
#include "core/failure.h"
#include "core/object.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

// What a program holds: it names an element, which may be gone since.
class element_reference_t final : public object_t {
  public:
    static constexpr type_e type = type_e::accessibility_element;

    element_reference_t(element_id_t named, pid_t process) : id(named), application(process) {}
    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const element_id_t id;  // 0: the system-wide element
    const pid_t application;
    mutable std::atomic<float> timeout{0.0F};  // in seconds; 0: the process's
};

// Of the system-wide element, whichever object stands for it; 0: the platform's own.
std::atomic<float>& process_timeout() {
    static std::atomic<float> timeout{0.0F};
    return timeout;
}

AXUIElementRef hand_out(element_id_t id, pid_t application, const char* function) {
    return static_cast<AXUIElementRef>(
        publish(std::make_unique<element_reference_t>(id, application), function));
}

const element_reference_t& reference_of(AXUIElementRef element, const char* function) {
    return object_of<element_reference_t>(element, function);
}

// The element of an application that a call is about.
element_id_t named_by(AXUIElementRef element, const char* function) {
    const element_id_t id = reference_of(element, function).id;
    if (id == 0) {
        not_modelled(function, "the system-wide element");
    }
    return id;
}

void expect_place(const void* result, const char* function) {
    if (result == nullptr) {
        misuse(function, "there is no place for the result");
    }
}

// What every call goes through that asks an application: the one of the element, or the one that is
// frontmost at a place, if any is.
template <typename application_t>
AXError reach(AXUIElementRef element, application_t application, const char* function) {
    before_call(function);
    if (!granted(permission_e::accessibility)) {
        return kAXErrorAPIDisabled;
    }
    if (shall_fail(function)) {
        return kAXErrorCannotComplete;
    }
    float seconds = reference_of(element, function).timeout;
    if (seconds == 0) {
        seconds = process_timeout();
    }
    std::unique_lock lock(screen().mutex);
    const std::chrono::duration<double> timeout =
        seconds == 0 ? screen().usual_timeout : std::chrono::duration<double>(seconds);
    const auto answers = [&] { return !screen().hanging.contains(application()); };
    return screen().woken.wait_for(lock, timeout, answers) ? kAXErrorSuccess
                                                           : kAXErrorCannotComplete;
}

AXError reach_application_of(AXUIElementRef element, const char* function) {
    const pid_t application = reference_of(element, function).application;
    return reach(
        element, [application] { return application; }, function);
}

struct value_t {
    AXError error = kAXErrorSuccess;
    const char* text = nullptr;  // null: the value is an element
    element_id_t element = 0;
    pid_t application = 0;
};

value_t value_of(element_id_t id, const std::string& attribute, const char* function) {
    const std::lock_guard lock(screen().mutex);
    const auto found = screen().elements.find(id);
    if (found == screen().elements.end()) {
        return {kAXErrorInvalidUIElement};
    }
    const element_t& element = found->second;
    const auto element_or_none = [&](element_id_t other) {
        return screen().elements.contains(other)
                   ? value_t{kAXErrorSuccess, nullptr, other, element.application}
                   : value_t{kAXErrorNoValue};
    };
    if (attribute == "AXRole") {
        return {kAXErrorSuccess, element.role};
    }
    if (attribute == "AXParent") {
        return element_or_none(element.parent);
    }
    if (attribute == "AXWindow") {
        return element.knows_window ? element_or_none(element.window)
                                    : value_t{kAXErrorAttributeUnsupported};
    }
    if (const window_t::button_t button = window_t::button_behind(attribute); button != nullptr) {
        const window_t* const window = screen().window(id);
        return window != nullptr ? element_or_none(window->*button)
                                 : value_t{kAXErrorAttributeUnsupported};
    }
    not_modelled(function, "reading the attribute " + attribute);
}

// An attribute that can be set, of an element that may lack it.
struct setting_t {
    AXError error = kAXErrorSuccess;
    bool settable = false;
    window_t* window = nullptr;
};

// The screen's mutex is held.
setting_t setting_of(element_id_t id, const std::string& attribute, const char* function) {
    const bool minimized = attribute == "AXMinimized";
    if (!minimized && attribute != "AXFullScreen") {
        not_modelled(function, "setting the attribute " + attribute);
    }
    if (!screen().elements.contains(id)) {
        return {kAXErrorInvalidUIElement};
    }
    window_t* const window = screen().window(id);
    if (window == nullptr) {
        return {kAXErrorAttributeUnsupported};
    }
    return {kAXErrorSuccess,
            minimized ? window->options.minimized_settable : window->options.full_screen_settable,
            window};
}

// The screen's mutex is held.
void record(const window_t& window, std::string request, bool refused) {
    screen().requests.push_back(
        {screen().applications.at(window.application), window.title, std::move(request), refused});
}

AXError set(element_id_t id, const std::string& attribute, bool value, const char* function) {
    const std::lock_guard lock(screen().mutex);
    const setting_t setting = setting_of(id, attribute, function);
    if (setting.error != kAXErrorSuccess) {
        return setting.error;
    }
    const bool refused = !setting.settable || setting.window->options.sets_refused;
    record(*setting.window, "set " + attribute + (value ? " to true" : " to false"), refused);
    if (refused) {
        return setting.settable ? kAXErrorFailure : kAXErrorAttributeUnsupported;
    }
    if (attribute == "AXMinimized") {
        setting.window->minimized = value;
    }
    return kAXErrorSuccess;
}

AXError press(element_id_t id) {
    const std::lock_guard lock(screen().mutex);
    const auto element = screen().elements.find(id);
    if (element == screen().elements.end()) {
        return kAXErrorInvalidUIElement;
    }
    window_t* const window = screen().window(element->second.window);
    const char* const button = window != nullptr ? window->attribute_of(id) : nullptr;
    if (button == nullptr) {
        return kAXErrorActionUnsupported;
    }
    const bool unanswered = window->options.presses_unanswered;
    record(*window, std::string("pressed ") + button, window->options.presses_refused);
    if (window->options.presses_refused) {
        return kAXErrorFailure;
    }
    if (id == window->minimize_button) {
        window->minimized = true;
    } else if (id == window->close_button) {
        screen().close(window->id);
    }
    return unanswered ? kAXErrorCannotComplete : kAXErrorSuccess;
}

}  // namespace
}  // namespace simulator

using simulator::object_of;

extern "C" {

CFTypeID AXUIElementGetTypeID() {
    return static_cast<CFTypeID>(simulator::type_e::accessibility_element);
}

AXUIElementRef AXUIElementCreateSystemWide() {
    return simulator::shall_fail(__func__) ? nullptr : simulator::hand_out(0, 0, __func__);
}

AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid) {
    simulator::expect_place(pid, __func__);
    simulator::named_by(element, __func__);
    if (simulator::shall_fail(__func__)) {
        return kAXErrorInvalidUIElement;
    }
    *pid = simulator::reference_of(element, __func__).application;
    return kAXErrorSuccess;
}

AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds) {
    constexpr float longest = 3600;
    const auto& reference = simulator::reference_of(element, __func__);
    if (timeoutInSeconds < 0) {
        return kAXErrorIllegalArgument;
    }
    if (!(timeoutInSeconds <= longest)) {
        simulator::not_modelled(__func__, "more than an hour, or no number");
    }
    (reference.id == 0 ? simulator::process_timeout() : reference.timeout) = timeoutInSeconds;
    return kAXErrorSuccess;
}

AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                         AXUIElementRef* element) {
    const simulator::call_t call(__func__);
    simulator::expect_place(element, __func__);
    if (simulator::reference_of(application, __func__).id != 0) {
        simulator::not_modelled(__func__, "an element other than the system-wide one");
    }
    simulator::element_id_t there = 0;
    pid_t process = 0;
    const auto look = [&] {
        there = simulator::screen().frontmost_at({x, y});
        process = there != 0 ? simulator::screen().elements.at(there).application : 0;
        return process;
    };
    if (const AXError error = simulator::reach(application, look, __func__);
        error != kAXErrorSuccess) {
        return error;
    }
    if (there == 0) {
        return kAXErrorNoValue;
    }
    *element = simulator::hand_out(there, process, __func__);
    return kAXErrorSuccess;
}

AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                      CFTypeRef* value) {
    const simulator::call_t call(__func__);
    simulator::expect_place(value, __func__);
    const simulator::element_id_t id = simulator::named_by(element, __func__);
    const std::string& name = object_of<simulator::string_t>(attribute, __func__).text;
    if (const AXError error = simulator::reach_application_of(element, __func__);
        error != kAXErrorSuccess) {
        return error;
    }
    const simulator::value_t found = simulator::value_of(id, name, __func__);
    if (found.error != kAXErrorSuccess) {
        return found.error;
    }
    *value = found.text != nullptr
                 ? simulator::publish(std::make_unique<simulator::string_t>(found.text), __func__)
                 : simulator::hand_out(found.element, found.application, __func__);
    return kAXErrorSuccess;
}

AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute,
                                       Boolean* settable) {
    const simulator::call_t call(__func__);
    simulator::expect_place(settable, __func__);
    const simulator::element_id_t id = simulator::named_by(element, __func__);
    const std::string& name = object_of<simulator::string_t>(attribute, __func__).text;
    if (const AXError error = simulator::reach_application_of(element, __func__);
        error != kAXErrorSuccess) {
        return error;
    }
    const std::lock_guard lock(simulator::screen().mutex);
    const simulator::setting_t setting = simulator::setting_of(id, name, __func__);
    if (setting.error == kAXErrorSuccess) {
        *settable = setting.settable ? 1 : 0;
    }
    return setting.error;
}

AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                     CFTypeRef value) {
    const simulator::call_t call(__func__);
    const simulator::element_id_t id = simulator::named_by(element, __func__);
    const std::string& name = object_of<simulator::string_t>(attribute, __func__).text;
    const bool truth = object_of<simulator::boolean_t>(value, __func__).value;
    if (const AXError error = simulator::reach_application_of(element, __func__);
        error != kAXErrorSuccess) {
        return error;
    }
    return simulator::set(id, name, truth, __func__);
}

AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action) {
    const simulator::call_t call(__func__);
    const simulator::element_id_t id = simulator::named_by(element, __func__);
    if (object_of<simulator::string_t>(action, __func__).text != "AXPress") {
        simulator::not_modelled(__func__, "an action other than AXPress");
    }
    if (const AXError error = simulator::reach_application_of(element, __func__);
        error != kAXErrorSuccess) {
        return error;
    }
    return simulator::press(id);
}

}  // extern "C"
