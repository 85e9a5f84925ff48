#include "macos/executer_pointer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "control/applications.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;

TEST(executer_pointer, a_double_click_is_two_clicks_where_the_pointer_is_and_a_step_one_scroll) {
    const log_capture_t log;
    const CGPoint place{120, 80};
    const pid_t application = simulator::launch_application("Browser");
    simulator::open_window(application, "Page", CGRect{{0, 0}, {800, 600}});
    simulator::move_to(simulator::connect({"mouse", 1, 2}), place);

    // What programs have posted since the last look, once it has arrived; nothing stays owned.
    const auto take_posted = [&] {
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        std::vector<simulator::event_record_t> posted;
        for (const auto& event : simulator::events()) {
            if (event.origin == simulator::event_origin_e::posted) {
                EXPECT_EQ(event.delivered_to, application);
                posted.push_back(event);
            }
        }
        simulator::forget_events();
        return posted;
    };
    take_posted();

    post_double_click();
    const auto clicks = take_posted();
    ASSERT_EQ(clicks.size(), 4U);
    for (std::size_t i = 0; i < clicks.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(clicks[i].type, i % 2 == 0 ? kCGEventLeftMouseDown : kCGEventLeftMouseUp);
        EXPECT_EQ(clicks[i].button, 0);
        EXPECT_EQ(clicks[i].location.x, place.x);
        EXPECT_EQ(clicks[i].location.y, place.y);
        EXPECT_EQ(clicks[i].click_state == 2, i >= 2);
    }
    for (const auto& [direction, wheels] : {std::pair(wheel_e::forward, 1U), {wheel_e::left, 2U}}) {
        post_wheel_step(direction);
        const auto posted = take_posted();
        ASSERT_EQ(posted.size(), 1U);
        EXPECT_TRUE(posted[0].scroll_in_lines);
        EXPECT_EQ(posted[0].scroll_wheels, wheels);
    }

    // A call that fails costs one action at most.
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
        action();
        EXPECT_EQ(take_posted().size(), expected_of_the_next);
    }
    EXPECT_EQ(log.lines(), lines_t{});
}

}  // namespace
