#include "macos/executer_pointer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "control/applications.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;

// A pointer over a window, and nothing said or owned after any action.
class executer_pointer_test : public testing::Test {
  protected:
    executer_pointer_test() {
        simulator::open_window(application, "Page", CGRect{{0, 0}, {800, 600}});
        simulator::move_to(mouse, place);
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
        simulator::forget_events();
    }

    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(log.lines(), lines_t{});
    }

    // What programs have posted since the last look, once it has arrived.
    std::vector<simulator::event_record_t> take_posted() {
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
        std::vector<simulator::event_record_t> posted;
        for (const auto& event : simulator::events()) {
            if (event.origin == simulator::event_origin_e::posted) {
                EXPECT_EQ(event.delivered_to, application);
                posted.push_back(event);
            }
        }
        simulator::forget_events();
        return posted;
    }

    log_capture_t log;
    const CGPoint place{120, 80};
    const pid_t application = simulator::launch_application("Browser");
    const simulator::device_id_t mouse = simulator::connect({"mouse", 1, 2});
};

TEST_F(executer_pointer_test, a_wheel_action_posts_one_scroll_event_in_lines) {
    using expected_t = std::tuple<std::uint32_t, std::int64_t, std::int64_t>;
    const struct {
        wheel_e direction;
        expected_t wheels_vertical_horizontal;
    } cases[] = {
        {wheel_e::forward, {1, 3, 0}},
        {wheel_e::backward, {1, -3, 0}},
        {wheel_e::left, {2, 0, -3}},
        {wheel_e::right, {2, 0, 3}},
    };
    for (const auto& [direction, expected] : cases) {
        post_wheel_step(direction);
        const auto posted = take_posted();
        ASSERT_EQ(posted.size(), 1U);
        EXPECT_EQ(posted[0].type, kCGEventScrollWheel);
        EXPECT_TRUE(posted[0].scroll_in_lines);
        EXPECT_EQ(expected_t(posted[0].scroll_wheels, posted[0].scroll.line_axis_1,
                             posted[0].scroll.line_axis_2),
                  expected);
    }
}

TEST_F(executer_pointer_test, a_double_click_is_two_clicks_where_the_pointer_is) {
    post_double_click();
    const auto posted = take_posted();
    ASSERT_EQ(posted.size(), 4U);
    for (std::size_t i = 0; i < posted.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(posted[i].type, i % 2 == 0 ? kCGEventLeftMouseDown : kCGEventLeftMouseUp);
        EXPECT_EQ(posted[i].button, 0);
        EXPECT_EQ(posted[i].location.x, place.x);
        EXPECT_EQ(posted[i].location.y, place.y);
        EXPECT_EQ(posted[i].click_state == 2, i >= 2);
    }
}

TEST_F(executer_pointer_test, a_call_that_fails_costs_one_action_at_most) {
    const auto wheel = [] { post_wheel_step(wheel_e::left); };
    const struct {
        std::string failing_call;
        void (*action)();
        std::size_t posted;
        std::size_t posted_by_the_next;
    } cases[] = {
        {"CGEventCreateScrollWheelEvent", wheel, 0, 1},
        {"CGEventSourceCreate", post_double_click, 4, 4},
        {"CGEventCreate", post_double_click, 0, 4},
        {"CGEventCreateMouseEvent", post_double_click, 0, 4},
    };
    for (const auto& [failing_call, action, expected, expected_of_the_next] : cases) {
        SCOPED_TRACE(failing_call);
        simulator::fail_next(failing_call);
        action();
        EXPECT_EQ(take_posted().size(), expected);
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        action();
        EXPECT_EQ(take_posted().size(), expected_of_the_next);
    }
}

}  // namespace
