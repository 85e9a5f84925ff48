#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/applications.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"

namespace {

using namespace std::chrono_literals;
using simulator::event_origin_e;
using simulator::event_outcome_e;
using simulator::event_record_t;
using simulator::permission_e;
using simulator::run_loop_e;
using simulator::settle;

constexpr auto enough_patience = 30s;  // for events that the test answers

template <typename... types_t>
constexpr CGEventMask mask_of(types_t... types) {
    return (CGEventMaskBit(types) | ...);
}

// A tap of the test's thread, which notes what it is called with.
class recording_tap_t {
  public:
    recording_tap_t(std::string tap_name, CGEventMask mask, std::vector<std::string>& log)
        : _name(std::move(tap_name)), _log(log) {
        _port = CGEventTapCreate(kCGHIDEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
                                 mask, &_called, this);
        if (_port != nullptr) {
            _source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, _port, 0);
        }
    }
    recording_tap_t(const recording_tap_t&) = delete;
    recording_tap_t& operator=(const recording_tap_t&) = delete;
    ~recording_tap_t() {
        if (_port != nullptr) {
            CFMachPortInvalidate(_port);
            CFRelease(_source);
            CFRelease(_port);
        }
    }

    recording_tap_t& schedule() {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), _source, kCFRunLoopCommonModes);
        return *this;
    }
    CFMachPortRef port() const { return _port; }

    // What becomes of an event; it passes when nothing else is said.
    std::function<CGEventRef(CGEventRef)> decide = [](CGEventRef event) { return event; };

  private:
    static CGEventRef _called(CGEventTapProxy, CGEventType type, CGEventRef event, void* self) {
        auto& tap = *static_cast<recording_tap_t*>(self);
        if (type == kCGEventTapDisabledByTimeout) {
            tap._log.push_back(tap._name + " timed out");
            return event;
        }
        if (type == kCGEventTapDisabledByUserInput) {
            tap._log.push_back(tap._name + " disabled");
            return event;
        }
        tap._log.push_back(tap._name + " " + std::to_string(type));
        return tap.decide(event);
    }

    std::string _name;
    std::vector<std::string>& _log;
    CFMachPortRef _port = nullptr;
    CFRunLoopSourceRef _source = nullptr;
};

class quartz_test : public testing::Test {
  protected:
    quartz_test() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        simulator::set_tap_patience(enough_patience);
        mouse = simulator::connect({.name = "mouse", .has_keyboard = true, .keyboard_type = 44});
    }

    void TearDown() override {
        EXPECT_TRUE(settle(run_loop_e::run));
        EXPECT_EQ(simulator::objects_alive(), std::vector<std::string>());
        EXPECT_EQ(simulator::taps_alive(), 0U);
        simulator::shut_down();
    }

    // All that the desktop saw, when it is quiet.
    static std::vector<event_record_t> seen() {
        EXPECT_TRUE(settle(run_loop_e::run));
        return simulator::events();
    }

    simulator::device_id_t mouse = 0;
    std::vector<std::string> log;
};

// Adopts an event for the time of one post.
void post_and_release(CGEventRef event) {
    CGEventPost(kCGSessionEventTap, event);
    CFRelease(event);
}

TEST_F(quartz_test, taps_see_what_they_ask_for_the_last_one_first) {
    recording_tap_t first("first", mask_of(kCGEventOtherMouseDown, kCGEventKeyDown), log);
    recording_tap_t second("second", mask_of(kCGEventOtherMouseDown, kCGEventOtherMouseUp), log);
    first.schedule();
    second.schedule();
    CGEventTapEnable(second.port(), true);
    std::int64_t source_pid = -1;
    std::int64_t target_pid = -1;
    second.decide = [&](CGEventRef event) {
        source_pid = CGEventGetIntegerValueField(event, kCGEventSourceUnixProcessID);
        target_pid = CGEventGetIntegerValueField(event, kCGEventTargetUnixProcessID);
        return CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber) == 4 ? nullptr : event;
    };
    simulator::press(mouse, 3);
    simulator::press(mouse, 4);
    simulator::release(mouse, 3);
    simulator::press_key(mouse, 123);
    simulator::press(mouse, 0);

    const auto events = seen();
    EXPECT_EQ(log, (std::vector<std::string>{"second 25", "first 25", "second 25", "second 26",
                                             "first 10"}));
    ASSERT_EQ(events.size(), 5U);
    EXPECT_EQ(events[0].outcome, event_outcome_e::delivered);
    EXPECT_EQ(events[1].outcome, event_outcome_e::swallowed);
    EXPECT_EQ(events[4].outcome, event_outcome_e::delivered);
    EXPECT_EQ(source_pid, 0);
    EXPECT_EQ(target_pid, 0);

    log.clear();
    CGEventTapEnable(second.port(), false);
    simulator::press(mouse, 4);
    EXPECT_EQ(seen().back().outcome, event_outcome_e::delivered);
    EXPECT_EQ(log, std::vector<std::string>{"first 25"});
}

TEST_F(quartz_test, the_hand_makes_the_events_of_its_devices) {
    const pid_t below = simulator::launch_application("Below");
    const pid_t front = simulator::launch_application("Front");
    simulator::open_window(below, "big", CGRectMake(0, 0, 500, 500));
    simulator::open_window(front, "small", CGRectMake(100, 100, 50, 50));
    simulator::move_to(mouse, {10, 20});
    simulator::press(mouse, 1);
    simulator::drag(mouse, 2, 100, 100);
    simulator::release(mouse, 0);
    simulator::scroll(mouse, 1, -2);
    simulator::scroll(mouse, {.point_axis_2 = 3, .continuous = true, .phase = 2});
    simulator::move(mouse, 1000, 0);
    simulator::press_key(mouse, 0x37);
    simulator::repeat_key(mouse, 8);
    simulator::release_key(mouse, 0x37);
    simulator::press(mouse, 5);

    struct expected_t {
        CGEventType type;
        CGPoint location;
        pid_t delivered_to;
        CGEventFlags flags;
        std::int64_t button, click_state, key_code, keyboard_type, line_axis_2, point_axis_2;
    };
    const std::vector<expected_t> expected = {
        {kCGEventRightMouseDown, {10, 20}, below, 0, 1, 1, 0, 0, 0, 0},
        {kCGEventOtherMouseDragged, {110, 120}, front, 0, 2, 0, 0, 0, 0, 0},
        {kCGEventLeftMouseUp, {110, 120}, front, 0, 0, 1, 0, 0, 0, 0},
        {kCGEventScrollWheel, {110, 120}, front, 0, 0, 0, 0, 0, -2, -20},
        {kCGEventScrollWheel, {110, 120}, front, 0, 0, 0, 0, 0, 0, 3},
        {kCGEventFlagsChanged, {1110, 120}, front, kCGEventFlagMaskCommand, 0, 0, 0x37, 44, 0, 0},
        {kCGEventKeyDown, {1110, 120}, front, kCGEventFlagMaskCommand, 0, 0, 8, 44, 0, 0},
        {kCGEventFlagsChanged, {1110, 120}, front, 0, 0, 0, 0x37, 44, 0, 0},
        {kCGEventOtherMouseDown, {1110, 120}, 0, 0, 5, 1, 0, 0, 0, 0},
    };
    const auto events = seen();
    ASSERT_EQ(events.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(events[i].number, i + 1);
        EXPECT_EQ(events[i].origin, event_origin_e::hardware);
        EXPECT_EQ(events[i].outcome, event_outcome_e::delivered);
        EXPECT_EQ(events[i].type, expected[i].type);
        EXPECT_EQ(events[i].location.x, expected[i].location.x);
        EXPECT_EQ(events[i].location.y, expected[i].location.y);
        EXPECT_EQ(events[i].delivered_to, expected[i].delivered_to);
        EXPECT_EQ(events[i].flags, expected[i].flags);
        EXPECT_EQ(events[i].button, expected[i].button);
        EXPECT_EQ(events[i].click_state, expected[i].click_state);
        EXPECT_EQ(events[i].key_code, expected[i].key_code);
        EXPECT_EQ(events[i].keyboard_type, expected[i].keyboard_type);
        EXPECT_EQ(events[i].scroll.line_axis_2, expected[i].line_axis_2);
        EXPECT_EQ(events[i].scroll.point_axis_2, expected[i].point_axis_2);
    }
    EXPECT_TRUE(events[4].scroll.continuous);
    EXPECT_EQ(events[4].scroll.phase, 2);
}

TEST_F(quartz_test, a_posted_event_is_as_it_was_when_posted_and_passes_no_tap) {
    recording_tap_t tap("tap", ~CGEventMask{0}, log);
    tap.schedule();
    simulator::move_to(mouse, {7, 8});
    ASSERT_TRUE(settle(run_loop_e::run));
    log.clear();

    const CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateCombinedSessionState);
    CGEventSourceSetKeyboardType(source, 58);
    const CGEventRef key = CGEventCreateKeyboardEvent(source, 8, true);
    CFRelease(source);
    CGEventSetFlags(key, kCGEventFlagMaskCommand);
    CGEventPost(kCGSessionEventTap, key);
    CGEventSetFlags(key, 0);
    CFRelease(key);
    post_and_release(CGEventCreateKeyboardEvent(nullptr, 8, false));
    post_and_release(CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitLine, 1, 3));
    post_and_release(CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitLine, 2, 0, -3));
    const CGEventRef empty = CGEventCreate(nullptr);
    const CGEventRef click = CGEventCreateMouseEvent(nullptr, kCGEventLeftMouseDown,
                                                     CGEventGetLocation(empty), kCGMouseButtonLeft);
    CFRelease(empty);
    CGEventPost(kCGSessionEventTap, click);
    CGEventSetIntegerValueField(click, kCGMouseEventClickState, 2);
    post_and_release(click);

    const auto events = seen();
    EXPECT_TRUE(log.empty());
    ASSERT_EQ(events.size(), 6U);
    for (const auto& event : events) {
        EXPECT_EQ(event.origin, event_origin_e::posted);
        EXPECT_EQ(event.source_pid, getpid());
        EXPECT_EQ(event.location.x, 7);
    }
    EXPECT_EQ(events[0].type, kCGEventKeyDown);
    EXPECT_EQ(events[0].flags, kCGEventFlagMaskCommand);
    EXPECT_EQ(events[0].keyboard_type, 58);
    EXPECT_EQ(events[1].type, kCGEventKeyUp);
    EXPECT_EQ(events[1].flags, 0U);
    EXPECT_EQ(events[2].scroll_wheels, 1U);
    EXPECT_EQ(events[2].scroll.line_axis_1, 3);
    EXPECT_EQ(events[3].scroll_wheels, 2U);
    EXPECT_TRUE(events[3].scroll_in_lines);
    EXPECT_EQ(events[3].scroll.line_axis_2, -3);
    EXPECT_EQ(events[4].click_state, 1);
    EXPECT_EQ(events[5].click_state, 2);
    EXPECT_TRUE(simulator::wait_for_posted(6, 0ms));
    EXPECT_FALSE(simulator::wait_for_posted(7, 0ms));
    simulator::forget_events();
    EXPECT_TRUE(simulator::events().empty());
}

TEST_F(quartz_test, a_tap_that_answers_too_late_is_disabled_and_told_so) {
    recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
    tap.schedule();
    tap.decide = [](CGEventRef) -> CGEventRef { return nullptr; };
    simulator::set_tap_patience(50ms);
    simulator::hold_next_tap_callback();
    std::thread hand([this] {
        simulator::press(mouse, 3);
        while (simulator::taps_enabled() == 1) {
            std::this_thread::sleep_for(1ms);
        }
        simulator::press(mouse, 4);
        simulator::let_tap_callbacks_go();
    });
    while (log.size() < 2) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    }
    hand.join();
    auto events = seen();
    EXPECT_EQ(log, (std::vector<std::string>{"tap 25", "tap timed out"}));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].outcome, event_outcome_e::delivered);
    EXPECT_EQ(events[1].outcome, event_outcome_e::delivered);

    simulator::set_tap_patience(enough_patience);
    CGEventTapEnable(tap.port(), true);
    simulator::press(mouse, 3);
    EXPECT_EQ(seen().back().outcome, event_outcome_e::swallowed);
}

TEST_F(quartz_test, an_event_waits_for_a_tap_that_no_run_loop_serves_until_the_patience_ends) {
    recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
    simulator::set_tap_patience(20ms);
    simulator::press(mouse, 3);
    ASSERT_TRUE(settle(run_loop_e::leave));
    EXPECT_EQ(simulator::events().at(0).outcome, event_outcome_e::delivered);
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    EXPECT_TRUE(log.empty());
    tap.schedule();
    ASSERT_TRUE(settle(run_loop_e::run));
    EXPECT_EQ(log, (std::vector<std::string>{"tap 25", "tap timed out"}));
}

TEST_F(quartz_test, nobody_waits_for_a_tap_whose_port_is_gone) {
    {
        recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
        tap.schedule();
        simulator::press(mouse, 3);
        while (simulator::events().empty()) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_FALSE(settle(run_loop_e::leave, 5ms));
        CFMachPortInvalidate(tap.port());
        EXPECT_TRUE(settle(run_loop_e::leave));
        CGEventTapEnable(tap.port(), true);
        EXPECT_EQ(simulator::taps_alive(), 0U);
    }
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(simulator::events().at(0).outcome, event_outcome_e::delivered);
}

TEST_F(quartz_test, revoked_accessibility_disables_taps_and_refuses_new_ones_and_posting) {
    recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
    tap.schedule();
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
    EXPECT_TRUE(log.empty());  // told with the next event that it would have seen
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    CGEventTapEnable(tap.port(), true);
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    EXPECT_EQ(recording_tap_t("refused", mask_of(kCGEventKeyDown), log).port(), nullptr);
    post_and_release(CGEventCreateKeyboardEvent(nullptr, 8, true));
    simulator::press(mouse, 3);
    EXPECT_EQ(seen().size(), 1U);
    EXPECT_EQ(log, std::vector<std::string>{"tap disabled"});

    simulator::grant(permission_e::accessibility);
    simulator::fail_next("CGEventTapCreate");
    EXPECT_EQ(recording_tap_t("failed", mask_of(kCGEventKeyDown), log).port(), nullptr);
}

TEST_F(quartz_test, events_come_from_a_storm_of_hands_while_taps_come_and_go) {
    std::vector<std::thread> hands;
    for (int hand = 0; hand < 2; ++hand) {
        hands.emplace_back([this] {
            for (int i = 0; i < 100; ++i) {
                simulator::press(mouse, 3);
                simulator::release(mouse, 3);
                post_and_release(CGEventCreateKeyboardEvent(nullptr, 8, true));
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
        tap.schedule();
        for (int event = 0; event < 5; ++event) {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.001, true);
        }
    }
    for (auto& hand : hands) {
        hand.join();
    }
    EXPECT_EQ(seen().size(), 600U);
    simulator::shut_down();
    simulator::press(mouse, 3);
    EXPECT_EQ(seen().size(), 601U);
}

TEST_F(quartz_test, a_program_may_end_in_a_callback_while_the_desktop_waits_for_it) {
    const auto run = [this] {
        recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
        tap.schedule().decide = [](CGEventRef) -> CGEventRef { std::exit(77); };
        simulator::press(mouse, 3);
        simulator::press(mouse, 3);
        settle(run_loop_e::run);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(77), "");
}

TEST_F(quartz_test, mistakes_end_the_program) {
    const CGEventRef event = CGEventCreate(nullptr);
    const auto tap_at = [](CGEventTapLocation location, CGEventTapOptions options) {
        CGEventTapCreate(
            location, kCGHeadInsertEventTap, options, 1,
            [](CGEventTapProxy, CGEventType, CGEventRef passed, void*) { return passed; }, nullptr);
    };
    const auto answer_with = [this](const std::function<CGEventRef(CGEventRef)>& answer) {
        recording_tap_t tap("tap", mask_of(kCGEventOtherMouseDown), log);
        tap.schedule().decide = answer;
        simulator::press(mouse, 3);
        settle(run_loop_e::run);
    };
    EXPECT_DEATH(CGEventGetLocation(nullptr), "CGEventGetLocation");
    EXPECT_DEATH(CGEventPost(kCGHIDEventTap, event), "CGEventPost: not modelled");
    EXPECT_DEATH(CGEventPost(kCGSessionEventTap, event), "CGEventPost: not modelled");
    EXPECT_DEATH(CGEventGetIntegerValueField(event, static_cast<CGEventField>(0)),
                 "CGEventGetIntegerValueField: not modelled: field 0");
    EXPECT_DEATH(tap_at(kCGSessionEventTap, kCGEventTapOptionDefault), "CGEventTapCreate: not mod");
    EXPECT_DEATH(tap_at(kCGHIDEventTap, kCGEventTapOptionListenOnly), "CGEventTapCreate: not mod");
    EXPECT_DEATH(CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitPixel, 1, 1),
                 "CGEventCreateScrollWheelEvent: not modelled");
    EXPECT_DEATH(answer_with([event](CGEventRef) { return event; }), "another event");
    EXPECT_DEATH(answer_with([](CGEventRef lent) {
                     CFRelease(lent);
                     return lent;
                 }),
                 "an event tap's callback: the reference is dead");
    EXPECT_DEATH(simulator::press(mouse + 1, 0), "press: no such device");
    CFRelease(event);
}

}  // namespace
