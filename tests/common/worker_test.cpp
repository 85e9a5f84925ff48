#include "common/worker.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <vector>

#include "support/log_capture.h"

TEST(worker, items_run_one_at_a_time_in_the_order_of_pushing_and_stop_drains_them) {
    const log_capture_t log;
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
        if (item == 1) {
            throw std::runtime_error("no such window");
        }
    });
    worker.push_event(0);
    ASSERT_EQ(begun.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    // While the first runs: a push that waited for it would never return.
    worker.push_event(1);
    worker.push_event(2);
    go_on.set_value();
    worker.stop();
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"E Error processing event: no such window"});
}

TEST(worker, stopping_at_any_point_neither_loses_an_item_nor_hangs) {
    // Before the thread first runs, while it works, while it falls asleep.
    for (int round = 0; round < 2000; ++round) {
        worker_t<int> worker;
        int executed = 0;
        worker.start([&](int) { ++executed; });
        for (int item = 0; item < round % 3; ++item) {
            worker.push_event(item);
        }
        worker.stop();
        ASSERT_EQ(executed, round % 3);
    }
}
