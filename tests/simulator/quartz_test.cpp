#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/graphics/IOGraphicsLib.h>

#include "simulator/desktop_test.h"

namespace {

using namespace std::chrono_literals;
using simulator::run_loop_e;
using simulator::settle;

constexpr CGEventMask downs = CGEventMaskBit(kCGEventOtherMouseDown);
constexpr CGEventMask ups = CGEventMaskBit(kCGEventOtherMouseUp);
constexpr CGEventMask keys = CGEventMaskBit(kCGEventKeyDown);

// A tap of the test's thread, which notes what it is called with: its name for an event, 't' for
// disabled as too late, 'd' for disabled as forbidden.
struct recording_tap_t {
    recording_tap_t(char tap_name, CGEventMask mask, std::string& notes)
        : port(CGEventTapCreate(kCGHIDEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
                                mask, &called, this)),
          name(tap_name),
          log(notes) {}
    recording_tap_t(const recording_tap_t&) = delete;
    ~recording_tap_t() {
        CFMachPortInvalidate(port);
        CFRelease(port);
    }

    recording_tap_t& schedule() {
        const auto source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
        CFRelease(source);
        return *this;
    }
    static CGEventRef called(CGEventTapProxy, CGEventType type, CGEventRef event, void* self) {
        auto& tap = *static_cast<recording_tap_t*>(self);
        tap.log += type == kCGEventTapDisabledByTimeout     ? 't'
                   : type == kCGEventTapDisabledByUserInput ? 'd'
                                                            : tap.name;
        return event == nullptr ? nullptr : tap.decide(event);
    }

    const CFMachPortRef port;
    const char name;
    std::string& log;
    // What becomes of an event; it passes when nothing else is said.
    std::function<CGEventRef(CGEventRef)> decide = [](CGEventRef event) { return event; };
};

void post_key() {
    const CGEventRef key = CGEventCreateKeyboardEvent(nullptr, 8, true);
    CGEventPost(kCGSessionEventTap, key);
    CFRelease(key);
}

class quartz_test : public desktop_test {
  protected:
    quartz_test() { simulator::set_tap_patience(30s); }  // for events that the test answers

    // What became of all that the desktop saw, in order: 'd'elivered or 's'wallowed.
    static std::string fates_when_quiet() {
        EXPECT_TRUE(settle(run_loop_e::run));
        std::string all;
        for (const auto& event : simulator::events()) {
            all += event.outcome == simulator::event_outcome_e::delivered ? 'd' : 's';
        }
        return all;
    }

    const simulator::device_id_t mouse =
        simulator::connect({.name = "mouse", .keyboard = simulator::keyboard_pairs});
    std::string log;
};

TEST_F(quartz_test, taps_see_what_they_ask_for_the_last_one_first) {
    recording_tap_t first('1', downs | keys, log), second('2', downs | ups, log);
    first.schedule();
    second.schedule().decide = [this](CGEventRef event) {
        log += "(" + std::to_string(simulator::events().size()) + " have come)";
        return CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber) == 4 ? nullptr : event;
    };
    simulator::press(mouse, 4);
    simulator::press_key(mouse, 123);
    simulator::press(mouse, 0);
    EXPECT_EQ(fates_when_quiet(), "sdd");
    EXPECT_EQ(std::exchange(log, {}), "2(1 have come)1");
    simulator::burst([this] {
        simulator::press(mouse, 3);
        simulator::release(mouse, 3);
    });
    EXPECT_EQ(fates_when_quiet(), "sdddd");
    EXPECT_EQ(std::exchange(log, {}), "2(5 have come)2(5 have come)1");
}

TEST_F(quartz_test, a_tap_that_is_too_late_or_forbidden_is_disabled_and_told_so) {
    recording_tap_t tap('1', downs, log);
    tap.decide = [](CGEventRef) -> CGEventRef { return nullptr; };
    simulator::set_tap_patience(20ms);
    simulator::press(mouse, 3);
    ASSERT_TRUE(settle(run_loop_e::leave) && simulator::taps_enabled() == 0) << "unserved";
    tap.schedule();
    simulator::press(mouse, 4);
    EXPECT_EQ(fates_when_quiet(), "dd");
    EXPECT_EQ(log, "1t");
    simulator::set_tap_patience(30s);
    CGEventTapEnable(tap.port, true);
    simulator::press(mouse, 3);
    EXPECT_EQ(fates_when_quiet(), "dds");
    simulator::revoke(simulator::permission_e::accessibility);
    EXPECT_TRUE(settle(run_loop_e::run) && log == "1t1") << "told with the next event";
    CGEventTapEnable(tap.port, true);
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    post_key();
    simulator::press(mouse, 3);
    EXPECT_EQ(fates_when_quiet(), "ddsd") << "nothing is posted";
    EXPECT_EQ(log, "1t1d");
    simulator::grant(simulator::permission_e::accessibility);
    CGEventTapEnable(tap.port, true);
    simulator::press(mouse, 3);
    EXPECT_FALSE(settle(run_loop_e::leave, 5ms));
    CFMachPortInvalidate(tap.port);
    EXPECT_TRUE(settle(run_loop_e::leave)) << "nobody waits for a tap that is gone";
    CGEventTapEnable(tap.port, true);
}

io_service_t find_display() {
    io_iterator_t services = IO_OBJECT_NULL;
    IOServiceGetMatchingServices(kIOMainPortDefault, IOServiceMatching("IODisplayConnect"),
                                 &services);
    const io_service_t service = IOIteratorNext(services);
    IOObjectRelease(services);
    return service;
}

TEST_F(quartz_test, taps_and_displays_may_change_while_the_program_acts) {
    const auto screen = simulator::usual_display("Screen", 1, 2);
    auto connected = simulator::connect_display(screen);
    std::atomic<bool> stop = false;
    std::size_t pressed = 0;
    std::thread hand([&] {
        for (; !stop || pressed == 0; ++pressed) {
            simulator::press(mouse, 3);
            simulator::disconnect_display(
                std::exchange(connected, simulator::connect_display(screen)));
        }
    });
    for (int round = 0; round < 50; ++round) {
        recording_tap_t tap('1', downs, log);
        tap.schedule();
        post_key();
        const io_service_t display = find_display();
        IODisplaySetFloatParameter(display, 0, CFSTR("brightness"), 0.5F);
        IOObjectRelease(display);
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.001, true);
    }
    stop = true;
    hand.join();
    EXPECT_EQ(fates_when_quiet().size(), pressed + 50);
    EXPECT_EQ(simulator::brightness_writes().size(), 50U);
}

TEST_F(quartz_test, handles_are_counted_and_mistakes_end_the_program) {
    simulator::connect_display(simulator::usual_display("A", 1, 2));
    const io_service_t display = find_display();
    find_display();
    EXPECT_EQ(simulator::objects_alive(),
              lines_t{"IOKit handle of the service of A from IOIteratorNext, retained 2"});
    EXPECT_DEATH(IOIteratorNext(display), "IOIteratorNext: the handle is of something");
    IOObjectRelease(display);
    IOObjectRelease(display);
    EXPECT_DEATH(IOObjectRelease(display), "IOObjectRelease: the handle is dead");
    EXPECT_DEATH(IOObjectRelease(IO_OBJECT_NULL), "IOObjectRelease: the handle is null");

    const CGEventRef event = CGEventCreate(nullptr);
    recording_tap_t tap('1', downs, log);
    tap.schedule().decide = [event](CGEventRef) { return event; };
    EXPECT_DEATH(CGEventPost(kCGSessionEventTap, event), "CGEventPost: not modelled");
    EXPECT_DEATH(CGEventGetIntegerValueField(event, static_cast<CGEventField>(0)),
                 "CGEventGetIntegerValueField: not modelled: field 0");
    EXPECT_DEATH((simulator::press(mouse, 3), settle(run_loop_e::run)), "another event");
    EXPECT_DEATH(simulator::press(mouse + 1, 0), "press: no such device");
    CFRelease(event);
}

}  // namespace
