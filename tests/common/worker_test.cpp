#include "common/worker.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <vector>

#include "support/log_capture.h"

namespace {

constexpr std::chrono::seconds bound{10};

}  // namespace

TEST(worker, items_run_one_at_a_time_in_the_order_of_pushing_and_stop_drains_them) {
    worker_t<int> worker;
    std::promise<void> begun;
    std::promise<void> go_on;
    std::atomic<int> running{0};
    std::vector<int> done;
    worker.start([&](int item) {
        EXPECT_EQ(++running, 1);
        if (item == 0) {
            begun.set_value();
            go_on.get_future().wait();
        }
        done.push_back(item);
        --running;
    });
    worker.push_event(0);
    ASSERT_EQ(begun.get_future().wait_for(bound), std::future_status::ready);
    // While the first runs: a push that waited for it would never return.
    worker.push_event(1);
    worker.push_event(2);
    go_on.set_value();
    worker.stop();
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2}));
}

TEST(worker, what_is_queued_before_the_thread_first_runs_is_executed) {
    for (int round = 0; round < 200; ++round) {
        worker_t<int> worker;
        int sum = 0;
        worker.start([&](int item) { sum += item; });
        worker.push_event(1);
        worker.push_event(2);
        worker.stop();
        ASSERT_EQ(sum, 3) << round;
    }
}

TEST(worker, stop_reaches_a_thread_at_any_point_of_its_falling_asleep) {
    for (int round = 0; round < 2000; ++round) {
        worker_t<int> worker;
        worker.start([](int) {});
        if (round % 2 == 0) {
            worker.push_event(round);
        }
        worker.stop();
        worker.stop();
    }
}

TEST(worker, an_exception_is_logged_and_the_next_item_runs) {
    const log_capture_t log;
    worker_t<int> worker;
    int last = 0;
    worker.start([&](int item) {
        if (item == 1) {
            throw std::runtime_error("no such window");
        }
        last = item;
    });
    worker.push_event(1);
    worker.push_event(2);
    worker.stop();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"E Error processing event: no such window"});
    EXPECT_EQ(last, 2);
}

TEST(worker, an_empty_callback_is_an_error_of_each_item) {
    const log_capture_t log;
    worker_t<int> worker;
    worker.start(nullptr);
    worker.push_event(1);
    worker.push_event(2);
    worker.stop();
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(worker, starting_again_while_running_does_nothing) {
    worker_t<int> worker;
    int first = 0;
    int second = 0;
    worker.start([&](int) { ++first; });
    worker.start([&](int) { ++second; });
    worker.push_event(1);
    worker.stop();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
}
