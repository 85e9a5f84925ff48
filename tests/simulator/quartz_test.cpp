#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"

namespace {

using namespace std::chrono_literals;
using simulator::event_outcome_e;
using simulator::permission_e;
using simulator::run_loop_e;
using simulator::settle;

constexpr auto enough_patience = 30s;  // for events that the test answers

constexpr CGEventMask downs = CGEventMaskBit(kCGEventOtherMouseDown);
constexpr CGEventMask ups = CGEventMaskBit(kCGEventOtherMouseUp);
constexpr CGEventMask keys = CGEventMaskBit(kCGEventKeyDown);

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
        if (type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput) {
            const bool late = type == kCGEventTapDisabledByTimeout;
            tap._log.push_back(tap._name + (late ? " timed out" : " disabled"));
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

using fates_t = std::vector<event_outcome_e>;

class quartz_test : public testing::Test {
  protected:
    quartz_test() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        simulator::set_tap_patience(enough_patience);
        mouse = simulator::connect({.name = "mouse", .keyboard = simulator::keyboard_pairs});
    }

    void TearDown() override {
        EXPECT_TRUE(settle(run_loop_e::run));
        EXPECT_EQ(simulator::objects_alive(), std::vector<std::string>());
        EXPECT_EQ(simulator::taps_alive(), 0U);
        simulator::shut_down();
    }

    // What became of all that the desktop saw.
    static fates_t fates() {
        fates_t all;
        for (const auto& event : simulator::events()) {
            all.push_back(event.outcome);
        }
        return all;
    }
    static fates_t fates_when_quiet() {
        EXPECT_TRUE(settle(run_loop_e::run));
        return fates();
    }

    simulator::device_id_t mouse = 0;
    std::vector<std::string> log;
};

void post_a_key() {
    const CGEventRef event = CGEventCreateKeyboardEvent(nullptr, 8, true);
    CGEventPost(kCGSessionEventTap, event);
    CFRelease(event);
}

TEST_F(quartz_test, taps_see_what_they_ask_for_the_last_one_first) {
    recording_tap_t first("first", downs | keys, log);
    recording_tap_t second("second", downs | ups, log);
    first.schedule();
    second.schedule();
    second.decide = [](CGEventRef event) {
        return CGEventGetIntegerValueField(event, kCGMouseEventButtonNumber) == 4 ? nullptr : event;
    };
    simulator::press(mouse, 3);
    simulator::press(mouse, 4);
    simulator::release(mouse, 3);
    simulator::press_key(mouse, 123);
    simulator::press(mouse, 0);

    EXPECT_EQ(fates_when_quiet(), (fates_t{event_outcome_e::delivered, event_outcome_e::swallowed,
                                           event_outcome_e::delivered, event_outcome_e::delivered,
                                           event_outcome_e::delivered}));
    EXPECT_EQ(log, (std::vector<std::string>{"second 25", "first 25", "second 25", "second 26",
                                             "first 10"}));

    log.clear();
    CGEventTapEnable(second.port(), false);
    simulator::press(mouse, 4);
    EXPECT_EQ(fates_when_quiet().back(), event_outcome_e::delivered);
    EXPECT_EQ(log, std::vector<std::string>{"first 25"});
}

TEST_F(quartz_test, the_events_of_a_burst_wait_together) {
    recording_tap_t tap("tap", downs | ups, log);
    tap.schedule().decide = [&](CGEventRef event) {
        log.push_back(std::to_string(simulator::events().size()) + " have come");
        return event;
    };
    simulator::burst([this] {
        simulator::press(mouse, 3);
        simulator::release(mouse, 3);
    });
    EXPECT_EQ(fates_when_quiet(), fates_t(2, event_outcome_e::delivered));
    EXPECT_EQ(log, (std::vector<std::string>{"tap 25", "2 have come", "tap 26", "2 have come"}));
}

TEST_F(quartz_test, a_tap_that_answers_too_late_is_disabled_and_told_so) {
    recording_tap_t tap("tap", downs, log);
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
    EXPECT_EQ(fates_when_quiet(),
              (fates_t{event_outcome_e::delivered, event_outcome_e::delivered}));
    EXPECT_EQ(log, (std::vector<std::string>{"tap 25", "tap timed out"}));

    simulator::set_tap_patience(enough_patience);
    CGEventTapEnable(tap.port(), true);
    simulator::press(mouse, 3);
    EXPECT_EQ(fates_when_quiet().back(), event_outcome_e::swallowed);
}

TEST_F(quartz_test, nobody_waits_for_a_tap_that_is_not_served_or_gone) {
    {
        recording_tap_t tap("tap", downs, log);
        tap.schedule();
        simulator::press(mouse, 3);
        EXPECT_FALSE(settle(run_loop_e::leave, 5ms));
        CFMachPortInvalidate(tap.port());
        EXPECT_TRUE(settle(run_loop_e::leave));
        CGEventTapEnable(tap.port(), true);
        EXPECT_EQ(simulator::taps_alive(), 0U);
    }
    recording_tap_t tap("tap", downs, log);
    simulator::set_tap_patience(20ms);
    simulator::press(mouse, 3);
    ASSERT_TRUE(settle(run_loop_e::leave));
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    EXPECT_EQ(fates(), (fates_t{event_outcome_e::delivered, event_outcome_e::delivered}));
    EXPECT_TRUE(log.empty());
    tap.schedule();
    ASSERT_TRUE(settle(run_loop_e::run));
    EXPECT_EQ(log, (std::vector<std::string>{"tap 25", "tap timed out"}));
}

TEST_F(quartz_test, revoked_accessibility_disables_taps_and_refuses_new_ones_and_posting) {
    recording_tap_t tap("tap", downs, log);
    tap.schedule();
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(settle(run_loop_e::run));
    EXPECT_TRUE(log.empty());  // told with the next event that it would have seen
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    CGEventTapEnable(tap.port(), true);
    EXPECT_EQ(simulator::taps_enabled(), 0U);
    EXPECT_EQ(recording_tap_t("refused", keys, log).port(), nullptr);
    post_a_key();
    simulator::press(mouse, 3);
    EXPECT_EQ(fates_when_quiet().size(), 1U);
    EXPECT_EQ(log, std::vector<std::string>{"tap disabled"});
}

TEST_F(quartz_test, events_come_from_a_storm_of_hands_while_taps_come_and_go) {
    std::vector<std::thread> hands;
    for (int hand = 0; hand < 2; ++hand) {
        hands.emplace_back([this] {
            for (int i = 0; i < 100; ++i) {
                simulator::press(mouse, 3);
                simulator::release(mouse, 3);
                post_a_key();
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        recording_tap_t tap("tap", downs, log);
        tap.schedule();
        for (int event = 0; event < 5; ++event) {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.001, true);
        }
    }
    for (auto& hand : hands) {
        hand.join();
    }
    EXPECT_EQ(fates_when_quiet().size(), 600U);
}

TEST_F(quartz_test, mistakes_end_the_program) {
    const CGEventRef event = CGEventCreate(nullptr);
    const auto answer_with = [this](const std::function<CGEventRef(CGEventRef)>& answer) {
        recording_tap_t tap("tap", downs, log);
        tap.schedule().decide = answer;
        simulator::press(mouse, 3);
        settle(run_loop_e::run);
    };
    EXPECT_DEATH(CGEventPost(kCGSessionEventTap, event), "CGEventPost: not modelled");
    EXPECT_DEATH(CGEventGetIntegerValueField(event, static_cast<CGEventField>(0)),
                 "CGEventGetIntegerValueField: not modelled: field 0");
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
