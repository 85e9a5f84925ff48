#pragma once

#include <IOKit/hid/IOHIDManager.h>

#include <functional>
#include <memory>
#include <string>

#include "macos/hook_manager.h"
#include "macos/hook_manager_impl.h"
#include "support/supported_mouse.h"
#include "support/temporary_home.h"

// A settings text of so many applications, each of which binds four inputs of one mouse model, of
// "Default", and of one more whose name tells how many they are.
std::string settings_of(std::size_t applications);

// A home folder with the settings of ten applications, a supported mouse in the hand over a window
// of Mail, and the daemon's capture, whose callbacks can be called without the system. One in a
// process, on its main thread.
class world_t {
  public:
    static world_t& instance();

    // Over Mail: a press or a release of the side button or a step of the horizontal wheel, as its
    // type says.
    CGEventRef event() const { return _event.get(); }
    // The tap callback, as the system calls it: whether it swallows the event.
    bool tap(CGEventType type) {
        return mac_impl_t::event_tap_cb(nullptr, type, event(), _capture.get()) == nullptr;
    }
    // The HID callback.
    void take(IOHIDValueRef value) {
        mac_impl_t::hid_input_cb(_capture.get(), kIOReturnSuccess, nullptr, value);
    }
    // Calls `what` with a value of the mouse's motion, which lives as long as the call.
    static void with_value(const std::function<void(IOHIDValueRef)>& what);
    // Lets the settings be loaded from the file, as after a change.
    static void load(const std::filesystem::path& file);
    // Whether those of settings_of so many are.
    static bool is_loaded(std::size_t applications);
    // All that the hand has done has its effect.
    static void let_it_happen();

    const temporary_home_t home;
    simulator::device_id_t mouse = 0;

  private:
    world_t();

    std::unique_ptr<hook_manager_t> _hooks;
    std::unique_ptr<mac_impl_t> _capture;
    cpf_t<CGEventRef> _event;
};

// The platform's calls that the daemon makes for a value of motion, for a press or a wheel step
// (whose window it is), and for a release: what is left of their callbacks when all else costs
// nothing.
void bare_motion(IOHIDValueRef value);
void bare_press(CGEventRef event);
void bare_release(CGEventRef event);
void bare_step(CGEventRef event);
