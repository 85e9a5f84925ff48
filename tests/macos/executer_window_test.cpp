#include "macos/executer_window.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "control/applications.h"
#include "control/calls.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"
#include "macos/hit_test.h"
#include "support/fail_call.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;
using options_t = simulator::window_options_t;

TEST(nearest_window, looks_at_32_elements_and_no_more) {
    int looked_at = 0;
    const auto nothing = [&](int) { return ++looked_at, false; };
    const auto itself = [](int element) { return element; };
    EXPECT_EQ(nearest_window(1, nothing, itself), 0) << "a ring of elements";
    EXPECT_EQ(looked_at, 32);
}

// What an action says when it begins and when it fails.
struct window_action_t {
    void (*perform)();
    std::string begins;
    std::string fails;
};
const window_action_t minimizing{minimize_window_under_cursor, "I Minimize window (hovered)",
                                 "E AX minimize failed (check Accessibility perms?)"};
const window_action_t maximizing{maximize_window_under_cursor, "I Maximize/Zoom window (hovered)",
                                 "E AX maximize/zoom failed"};
const window_action_t closing{close_window_under_cursor, "I Close window (hovered)",
                              "E AX close failed"};

class executer_window_test : public testing::Test {
  protected:
    executer_window_test() {
        simulator::move_to(simulator::connect({"mouse", 1, 2}), {120, 80});
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
    }

    simulator::element_id_t open(const options_t& options = {}) {
        return simulator::open_window(application, "Inbox", frame, options);
    }

    // Performs it, checks what it asked of windows, what it said and that nothing stays owned.
    void expect(const window_action_t& action, bool works, const lines_t& requests = {}) {
        const auto before = simulator::window_requests().size();
        log.forget();
        action.perform();
        lines_t asked;
        const auto all = simulator::window_requests();
        for (auto i = before; i < all.size(); ++i) {
            asked.push_back(all[i].request);
        }
        EXPECT_EQ(asked, requests);
        EXPECT_EQ(log.lines(),
                  works ? lines_t{action.begins} : (lines_t{action.begins, action.fails}));
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
    }

    void all_fail() {
        for (const auto* action : {&minimizing, &maximizing, &closing}) {
            expect(*action, false);
        }
    }

    log_capture_t log;
    const CGRect frame{{0, 0}, {800, 600}};
    const pid_t application = simulator::launch_application("Mail");
    const std::string set_minimized = "set AXMinimized to true";
    const std::string set_full_screen = "set AXFullScreen to true";
    const std::string zoom = "pressed AXZoomButton";
    const lines_t closed{"pressed AXCloseButton"};
};

TEST_F(executer_window_test, a_window_that_lacks_or_refuses_something) {
    const struct {
        const window_action_t& action;
        options_t options;
        lines_t requests;
        bool works;
    } cases[] = {
        {minimizing, {}, {set_minimized}, true},
        {minimizing, {.minimized_settable = false}, {"pressed AXMinimizeButton"}, true},
        {minimizing, {.sets_refused = true}, {set_minimized}, false},
        {minimizing, {.has_minimize_button = false, .minimized_settable = false}, {}, false},
        {maximizing, {}, {zoom}, true},
        {maximizing, {.has_zoom_button = false}, {set_full_screen}, true},
        {maximizing, {.presses_refused = true}, {zoom, set_full_screen}, true},
        {maximizing, {.presses_refused = true, .has_full_screen = false}, {zoom}, false},
        {maximizing, {.has_zoom_button = false, .full_screen_settable = false}, {}, false},
        {maximizing, {.has_zoom_button = false, .sets_refused = true}, {set_full_screen}, false},
        {closing, {.has_close_button = false}, {}, false},
        {closing, {.presses_refused = true}, closed, false},
        {closing, {.presses_unanswered = true}, closed, false},
    };
    const auto behind = open();
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        open(cases[i].options);
        expect(cases[i].action, cases[i].works, cases[i].requests);
    }
    EXPECT_FALSE(simulator::window_state(behind)->minimized);
}

TEST_F(executer_window_test, a_window_is_found_from_what_stands_in_it_up_to_32_elements_away) {
    // The walk also looks at the control itself and at the window.
    for (const std::size_t groups : {0U, 30U}) {
        open({.control_knows_window = false, .groups_around_control = groups});
        expect(closing, true, closed);
    }
    open({.control_knows_window = false, .groups_around_control = 31});
    all_fail();
    open({.groups_around_control = 31});
    expect(closing, true, closed);
}

TEST_F(executer_window_test, without_a_window_or_the_permission_every_action_says_that_it_failed) {
    all_fail();  // nothing is there at all
    simulator::show_background(application, frame);
    all_fail();
    open();
    const auto menu_bar = simulator::show_menu_bar(application, frame);
    all_fail();
    simulator::vanish(menu_bar);
    simulator::revoke(simulator::permission_e::accessibility);
    all_fail();
    simulator::grant(simulator::permission_e::accessibility);
    expect(minimizing, true, {set_minimized});
}

TEST_F(executer_window_test, a_window_action_keeps_its_patience_while_a_callback_has_less) {
    using namespace std::chrono_literals;
    std::thread hand;
    const auto wake_after = [&](std::chrono::milliseconds time) {
        hand = std::thread([=, this] {
            std::this_thread::sleep_for(time);
            simulator::wake_application(application);
        });
    };
    // The callback's hit test has begun when the action's begins; the action asks again.
    const std::string at_position = "AXUIElementCopyElementAtPosition";
    std::binary_semaphore begun(0);
    std::thread callback;
    simulator::before_next_call(at_position, [&] {
        callback = std::thread([] { EXPECT_FALSE(element_at_in_callback({120, 80})); });
        begun.acquire();
    });
    simulator::before_next_call(at_position, [&] { begun.release(); });
    simulator::before_next_call(at_position, [&] { wake_after(2 * 250ms); });
    open();
    simulator::hang_application(application);
    expect(minimizing, true, {set_minimized});
    callback.join();
    hand.join();

    // What it has found is waited for as long, whatever the time-out of the process is.
    const auto everything = cpf_t<AXUIElementRef>::adopt(AXUIElementCreateSystemWide());
    for (const auto* const call : {"AXUIElementCopyAttributeValue",
                                   "AXUIElementIsAttributeSettable", "AXUIElementPerformAction"}) {
        SCOPED_TRACE(call);
        open({.minimized_settable = false});
        simulator::before_next_call(call, [&] {
            AXUIElementSetMessagingTimeout(everything.get(), 0.01F);
            simulator::hang_application(application);
            wake_after(200ms);
        });
        minimize_window_under_cursor();
        hand.join();
        EXPECT_EQ(simulator::window_requests().back().request, "pressed AXMinimizeButton");
        AXUIElementSetMessagingTimeout(everything.get(), 0);
    }
    EXPECT_EQ(log.count(minimizing.fails), 0U);
}

TEST_F(executer_window_test, a_call_that_fails_costs_one_action_at_most) {
    const std::string copy = "AXUIElementCopyAttributeValue";
    const options_t usual;
    const options_t walked{.control_knows_window = false};
    const struct {
        const window_action_t& action;
        options_t options;
        std::string call;
        lines_t requests;
        int which;
        bool works;
    } cases[] = {
        {closing, usual, "CGEventCreate", {}, 1, false},
        {closing, usual, "AXUIElementCreateSystemWide", {}, 1, false},
        {closing, usual, "AXUIElementCopyElementAtPosition", {}, 1, false},
        {closing, usual, copy, closed, 1, true},   // AXWindow: it is walked to
        {closing, walked, copy, closed, 2, true},  // AXRole of the control
        {closing, walked, copy, {}, 3, false},     // AXParent of the control
        {closing, walked, copy, {}, 4, false},     // AXRole of the window
        {closing, usual, copy, {}, 2, false},      // AXCloseButton
        {minimizing,
         usual,
         "AXUIElementIsAttributeSettable",
         {"pressed AXMinimizeButton"},
         1,
         true},
    };
    for (const auto& [action, options, call, requests, which, works] : cases) {
        SCOPED_TRACE(action.begins + " " + call + " " + std::to_string(which));
        open(options);
        fail_call(call, which);
        expect(action, works, requests);
        open();
        expect(closing, true, closed);
    }
}

}  // namespace
