#include "bench/world.h"

#include <libproc.h>

#include <array>
#include <utility>

#include "common/config/config.h"
#include "macos/hit_test.h"
#include "support/told_watcher.h"

static std::string name_of_all(std::size_t applications) {
    return "All " + std::to_string(applications);
}

std::string settings_of(std::size_t applications) {
    const std::string bindings = R"({"3":[{"action":0}],"4":[{"action":0}],"8":[{"action":0}],)"
                                 R"("5":[{"action":22,"params":{"combination":[106,107]}}]})";
    std::string entries;
    for (std::size_t number = 0; number < applications; ++number) {
        entries += R"("Application )" + std::to_string(number) + R"(":)" + bindings + ",";
    }
    return R"({"appState":[{"type":1,"appConfigs":{)" + entries + '"' + name_of_all(applications) +
           R"(":{"4":[{"action":6}]},"Default":)" + bindings + "}}]}";
}

world_t& world_t::instance() {
    static auto* const world = new world_t;  // to the end of the process
    return *world;
}

world_t::world_t() {
    home.write_settings(settings_of(10));
    simulator::set_tap_patience(std::chrono::seconds(60));
    mouse = connect_supported();
    simulator::open_window(simulator::launch_application("Mail"), "Inbox", {{0, 0}, {500, 500}});
    config_t::instance();
    _hooks = std::make_unique<hook_manager_t>();
    _capture = std::make_unique<mac_impl_t>(*_hooks);
    _event = cpf_t<CGEventRef>::adopt(
        CGEventCreateMouseEvent(nullptr, kCGEventLeftMouseDown, {100, 100}, kCGMouseButtonLeft));
    CGEventSetIntegerValueField(_event.get(), kCGMouseEventButtonNumber, 3);
    CGEventSetIntegerValueField(_event.get(), kCGScrollWheelEventDeltaAxis2, -1);
    simulator::move_to(mouse, {100, 100});
    let_it_happen();
}

void world_t::load(const std::filesystem::path& file) {
    told_watcher::tell(file);
}

bool world_t::is_loaded(std::size_t applications) {
    const action_t action = config_t::instance().retrieve_action(
        qlx_device_e::valtor_pro, static_cast<input_value_e>(4), name_of_all(applications));
    return std::holds_alternative<copy_t>(action);
}

void world_t::let_it_happen() {
    if (!simulator::settle(simulator::run_loop_e::run, std::chrono::seconds(60))) {
        throw std::runtime_error("the desktop does not come to rest");
    }
}

void world_t::with_value(const std::function<void(IOHIDValueRef)>& what) {
    // A second manager, of all devices, which is called with the first value of a report alone.
    struct call_t {
        const std::function<void(IOHIDValueRef)>& what;
        bool is_over = false;
    } call{what};
    const auto manager = cpf_t<IOHIDManagerRef>::adopt(IOHIDManagerCreate(nullptr, 0));
    const auto anything =
        cpf_t<CFMutableArrayRef>::adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(anything.get(),
                       cpf_t<CFMutableDictionaryRef>::adopt(
                           CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                     &kCFTypeDictionaryValueCallBacks))
                           .get());
    IOHIDManagerSetDeviceMatchingMultiple(manager.get(), anything.get());
    IOHIDManagerSetInputValueMatchingMultiple(manager.get(), anything.get());
    IOHIDManagerRegisterInputValueCallback(
        manager.get(),
        [](void* context, IOReturn, void*, IOHIDValueRef value) {
            if (auto& made = *static_cast<call_t*>(context); !std::exchange(made.is_over, true)) {
                made.what(value);
            }
        },
        &call);
    IOHIDManagerScheduleWithRunLoop(manager.get(), CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    IOHIDManagerOpen(manager.get(), 0);
    simulator::move(world_t::instance().mouse, 0, 0);
    let_it_happen();
    IOHIDManagerUnscheduleFromRunLoop(manager.get(), CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
}

void bare_motion(IOHIDValueRef value) {
    const IOHIDElementRef element = IOHIDValueGetElement(value);
    IOHIDElementGetDevice(element);
    IOHIDElementGetUsagePage(element);
}

namespace {

void bare_question(CGEventRef event) {
    CGEventGetIntegerValueField(event, kCGEventTargetUnixProcessID);
    const CGPoint place = CGEventGetLocation(event);
    const AXUIElementRef everything = AXUIElementCreateSystemWide();
    AXUIElementSetMessagingTimeout(everything, callback_patience.count());
    AXUIElementRef element = nullptr;
    AXUIElementCopyElementAtPosition(everything, static_cast<float>(place.x),
                                     static_cast<float>(place.y), &element);
    AXUIElementSetMessagingTimeout(everything, 0);
    pid_t pid = 0;
    AXUIElementGetPid(element, &pid);
    CFRelease(element);
    CFRelease(everything);
    std::array<char, 1024> name{};
    proc_name(pid, name.data(), static_cast<std::uint32_t>(name.size()));
}

}  // namespace

void bare_press(CGEventRef event) {
    CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber);
    bare_question(event);
}

void bare_release(CGEventRef event) {
    CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber);
}

void bare_step(CGEventRef event) {
    for (const auto field : {kCGScrollWheelEventPointDeltaAxis1, kCGScrollWheelEventPointDeltaAxis2,
                             kCGScrollWheelEventDeltaAxis1, kCGScrollWheelEventDeltaAxis2,
                             kCGScrollWheelEventIsContinuous, kCGScrollWheelEventScrollPhase,
                             kCGScrollWheelEventMomentumPhase}) {
        CGEventGetIntegerValueField(event, field);
    }
    bare_question(event);
}
