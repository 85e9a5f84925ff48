#include "macos/executer_window.h"

#include <gtest/gtest.h>

#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "control/applications.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;
using options_t = simulator::window_options_t;

TEST(nearest_window, looks_at_32_elements_and_no_more) {
    const struct {
        int window;  // the element's number: its parent is the next one
        int top;
        int found;
        int looked_at;
    } cases[] = {
        {1, 3, 1, 1}, {3, 3, 3, 3}, {4, 3, 0, 3}, {32, 40, 32, 32}, {33, 40, 0, 32},
    };
    for (const auto& chain : cases) {
        int looked_at = 0;
        const auto is_window = [&](int element) {
            ++looked_at;
            return element == chain.window;
        };
        const auto parent_of = [&](int element) { return element < chain.top ? element + 1 : 0; };
        EXPECT_EQ(nearest_window(1, is_window, parent_of), chain.found);
        EXPECT_EQ(looked_at, chain.looked_at);
    }
    const auto nothing = [](int) { return false; };
    const auto itself = [](int element) { return element; };
    EXPECT_EQ(nearest_window(1, nothing, itself), 0) << "a ring of elements";
}

TEST(window_ways, minimising_prefers_the_attribute_and_maximising_the_button) {
    const struct {
        bool settable, set, press;
        std::string minimize, maximize;  // what was tried, and whether it worked
    } cases[] = {
        {true, true, true, "set yes", "press yes"},
        {true, true, false, "set yes", "press set yes"},
        {true, false, true, "set no", "press yes"},
        {true, false, false, "set no", "press set no"},
        {false, true, true, "press yes", "press yes"},
        {false, true, false, "press no", "press no"},
    };
    for (const auto& way : cases) {
        std::string tried;
        const auto settable = [&] { return way.settable; };
        const auto set = [&] { return tried += "set ", way.set; };
        const auto press = [&] { return tried += "press ", way.press; };
        const bool minimized = minimize_by(settable, set, press);
        EXPECT_EQ(tried + (minimized ? "yes" : "no"), way.minimize);
        tried.clear();
        const bool maximized = maximize_by(press, settable, set);
        EXPECT_EQ(tried + (maximized ? "yes" : "no"), way.maximize);
    }
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
        simulator::move_to(mouse, {120, 80});
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

    log_capture_t log;
    const CGRect frame{{0, 0}, {800, 600}};
    const pid_t application = simulator::launch_application("Mail");
    const simulator::device_id_t mouse = simulator::connect({"mouse", 1, 2});
};

TEST_F(executer_window_test, the_window_under_the_pointer_changes_and_no_other) {
    const auto behind = open();
    const auto window = open();
    expect(minimizing, true, {"set AXMinimized to true"});
    EXPECT_TRUE(simulator::window_state(window)->minimized);
    simulator::bring_to_front(window);
    expect(maximizing, true, {"pressed AXZoomButton"});
    EXPECT_TRUE(simulator::window_state(window)->zoomed);
    expect(closing, true, {"pressed AXCloseButton"});
    EXPECT_EQ(simulator::window_state(window), std::nullopt);
    EXPECT_FALSE(simulator::window_state(behind)->minimized);
}

TEST_F(executer_window_test, a_window_that_lacks_or_refuses_something) {
    const std::string set_minimized = "set AXMinimized to true";
    const std::string set_full_screen = "set AXFullScreen to true";
    const std::string zoom = "pressed AXZoomButton";
    const struct {
        const window_action_t& action;
        options_t options;
        lines_t requests;
        bool works;
    } cases[] = {
        {minimizing, {.minimized_settable = false}, {"pressed AXMinimizeButton"}, true},
        {minimizing, {.sets_refused = true}, {set_minimized}, false},
        {minimizing, {.has_minimize_button = false, .minimized_settable = false}, {}, false},
        {minimizing,
         {.presses_refused = true, .minimized_settable = false},
         {"pressed AXMinimizeButton"},
         false},
        {maximizing, {.has_zoom_button = false}, {set_full_screen}, true},
        {maximizing, {.presses_refused = true}, {zoom, set_full_screen}, true},
        {maximizing, {.presses_refused = true, .has_full_screen = false}, {zoom}, false},
        {maximizing, {.has_zoom_button = false, .full_screen_settable = false}, {}, false},
        {maximizing, {.has_zoom_button = false, .sets_refused = true}, {set_full_screen}, false},
        {closing, {.has_close_button = false}, {}, false},
        {closing, {.presses_refused = true}, {"pressed AXCloseButton"}, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        open(cases[i].options);
        expect(cases[i].action, cases[i].works, cases[i].requests);
    }
}

TEST_F(executer_window_test, a_window_is_found_from_what_stands_in_it_up_to_32_elements_away) {
    // The walk also looks at the control itself and at the window.
    for (const std::size_t groups : {0U, 5U, 30U}) {
        open({.control_knows_window = false, .groups_around_control = groups});
        expect(closing, true, {"pressed AXCloseButton"});
    }
    open({.control_knows_window = false, .groups_around_control = 31});
    for (const auto* action : {&minimizing, &maximizing, &closing}) {
        expect(*action, false);
    }
    open({.groups_around_control = 31});
    expect(closing, true, {"pressed AXCloseButton"});
}

TEST_F(executer_window_test, without_a_window_or_the_permission_every_action_says_that_it_failed) {
    const auto all_fail = [&] {
        for (const auto* action : {&minimizing, &maximizing, &closing}) {
            expect(*action, false);
        }
    };
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
    expect(minimizing, true, {"set AXMinimized to true"});
}

TEST_F(executer_window_test, what_vanishes_between_two_calls_is_a_failure) {
    const struct {
        const window_action_t& action;
        std::string call;
        simulator::window_part_e part;
    } cases[] = {
        {minimizing, "AXUIElementIsAttributeSettable", simulator::window_part_e::control},
        {minimizing, "AXUIElementSetAttributeValue", simulator::window_part_e::control},
        {maximizing, "AXUIElementIsAttributeSettable", simulator::window_part_e::control},
        {closing, "AXUIElementCopyAttributeValue", simulator::window_part_e::control},
        {closing, "AXUIElementPerformAction", simulator::window_part_e::close_button},
    };
    for (const auto& [action, call, part] : cases) {
        SCOPED_TRACE(action.begins + " " + call);
        const auto window = open({.has_zoom_button = false});
        const auto gone =
            part == simulator::window_part_e::control ? window : simulator::part_of(window, part);
        simulator::before_next_call(call, [gone] { simulator::vanish(gone); });
        expect(action, false);
        simulator::close_window(window);
    }
}

// Lets the named call fail when it is made for the `which`th time from now, from 1.
void fail_call(const std::string& function, int which) {
    simulator::before_next_call(function, [function, which] {
        if (which == 1) {
            simulator::fail_next(function);
        } else {
            fail_call(function, which - 1);
        }
    });
}

TEST_F(executer_window_test, a_call_that_fails_costs_one_action_at_most) {
    const std::string copy = "AXUIElementCopyAttributeValue";
    const std::string settable = "AXUIElementIsAttributeSettable";
    const std::string set = "AXUIElementSetAttributeValue";
    const std::string press = "AXUIElementPerformAction";
    const options_t usual;
    const options_t walked{.control_knows_window = false};
    const options_t no_zoom{.has_zoom_button = false};
    const options_t only_button{.minimized_settable = false};
    const struct {
        const window_action_t& action;
        options_t options;
        std::string call;
        lines_t requests;
        int which;
        bool works;
    } cases[] = {
        {closing, usual, "CGEventCreate", {}, 0, false},
        {closing, usual, "AXUIElementCreateSystemWide", {}, 0, false},
        {closing, usual, "AXUIElementCopyElementAtPosition", {}, 1, false},
        {closing, usual, copy, {"pressed AXCloseButton"}, 1, true},   // AXWindow: it is walked to
        {closing, walked, copy, {"pressed AXCloseButton"}, 2, true},  // AXRole of the control
        {closing, walked, copy, {}, 3, false},                        // AXParent of the control
        {closing, walked, copy, {}, 4, false},                        // AXRole of the window
        {closing, usual, copy, {}, 2, false},                         // AXCloseButton
        {closing, usual, press, {}, 1, false},
        {minimizing, usual, settable, {"pressed AXMinimizeButton"}, 1, true},
        {minimizing, usual, set, {}, 1, false},
        {minimizing, only_button, copy, {}, 2, false},  // AXMinimizeButton
        {minimizing, only_button, press, {}, 1, false},
        {maximizing, usual, copy, {"set AXFullScreen to true"}, 2, true},  // AXZoomButton
        {maximizing, usual, press, {"set AXFullScreen to true"}, 1, true},
        {maximizing, no_zoom, settable, {}, 1, false},
        {maximizing, no_zoom, set, {}, 1, false},
    };
    for (const auto& [action, options, call, requests, which, works] : cases) {
        SCOPED_TRACE(action.begins + " " + call + " " + std::to_string(which));
        open(options);
        if (which == 0) {
            simulator::fail_next(call);
        } else {
            fail_call(call, which);
        }
        expect(action, works, requests);
        open();
        expect(closing, true, {"pressed AXCloseButton"});
    }
}

}  // namespace
