#include "macos/hit_test.h"

#include <semaphore>

#include "macos/executer_fixture.h"
#include "support/desktop.h"
#include "support/test.h"

namespace {

using namespace std::chrono_literals;

const std::string at_position = "AXUIElementCopyElementAtPosition";

class hit_test_test : public executer_test {
  protected:
    // The application answers no more, until the time is over.
    void hang_for(std::chrono::milliseconds time) {
        simulator::hang_application(application);
        hand = std::thread([=, this] {
            std::this_thread::sleep_for(time);
            simulator::wake_application(application);
        });
    }

    // When it returns, a callback's hit test has begun. The application hangs for longer than that
    // has patience.
    void begin_in_callback() {
        simulator::hang_application(application);
        simulator::before_next_call(at_position, [this] { begun.release(); });
        callback = std::thread([] { EXPECT_FALSE(element_at_in_callback(place)); });
        begun.acquire();
        simulator::before_next_call(at_position, [this] { hang_for(300ms); });
    }

    std::binary_semaphore begun{0};
    std::thread callback, hand;
};

TEST_F(hit_test_test,
       what_a_callback_cuts_short_is_asked_again_and_while_it_is_at_it_nobody_begins) {
    for (const bool cut_short : {true, false}) {
        set_up_desktop();
        cut_short ? simulator::before_next_call(at_position, [this] { begin_in_callback(); })
                  : begin_in_callback();
        EXPECT_EQ(effects_of(close_window_t{}).front(), "front pressed AXCloseButton");
        callback.join();
        hand.join();
    }
}

TEST_F(hit_test_test, what_was_found_is_waited_for_whatever_the_time_out_of_the_process_is) {
    for (const auto* const call : {"AXUIElementCopyAttributeValue",
                                   "AXUIElementIsAttributeSettable", "AXUIElementPerformAction"}) {
        open_window({.minimized_settable = false});
        simulator::before_next_call(call, [this] {
            simulator::set_usual_messaging_timeout(10ms);
            hang_for(50ms);
        });
        EXPECT_EQ(effects_of(minimize_window_t{}).front(), "front pressed AXMinimizeButton")
            << call;
        hand.join();
        simulator::set_usual_messaging_timeout(6s);
    }
}

}  // namespace
