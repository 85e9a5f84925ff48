#include "common/worker.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <stdexcept>
#include <vector>

#include "support/error_text.h"
#include "support/log_capture.h"

using namespace std::chrono_literals;

TEST(worker, items_run_in_the_order_of_pushing_and_stop_drains_them) {
    const log_capture_t log;
    worker_t<int> worker;
    std::promise<void> begun;
    std::promise<void> go_on;
    std::vector<int> done;
    worker.start([&](int item) {
        if (item == 0) {
            begun.set_value();
            go_on.get_future().wait();
        }
        done.push_back(item);
        if (item == 1) {
            throw std::runtime_error("no such window");
        }
    });
    worker.start([](int) { ADD_FAILURE() << "it runs already"; });
    worker.push_event(0);
    ASSERT_EQ(begun.get_future().wait_for(10s), std::future_status::ready);
    // While the first runs: a push that waited for it would never return.
    worker.push_event(1);
    worker.push_event(2);
    go_on.set_value();
    worker.stop();
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"E Error processing event: no such window"});
}

TEST(worker, neither_a_push_nor_a_stop_goes_unnoticed_at_any_moment) {
    for (int round = 0; round < 2000; ++round) {
        worker_t<int> worker;
        std::atomic<int> executed{0};
        worker.start([&](int) { ++executed; });
        wait_busily(round % 400 * 250ns);  // the thread starts, falls asleep, sleeps
        for (int item = 0; item < round % 3; ++item) {
            worker.push_event(item);
        }
        ASSERT_TRUE(round % 3 < 2 || wait_until([&] { return executed == 2; })) << round;
        worker.stop();
        ASSERT_EQ(executed, round % 3);
    }
}

#ifdef __GLIBC__  // elsewhere there is no way to be refused a thread
TEST(worker, a_start_without_a_thread_says_so_and_can_be_tried_again) {
    worker_t<int> worker;
    int sum = 0;
    const auto start = [&](std::size_t stack_size) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, stack_size);
        pthread_setattr_default_np(&attributes);
        return worker.start([&](int item) { sum += item; });
    };
    EXPECT_EQ(error_text([&] { start(std::size_t{1} << 60); }),
              "thread constructor failed: Resource temporarily unavailable");
    worker.push_event(7);
    start(std::size_t{1} << 23);
    worker.stop();
    EXPECT_EQ(sum, 7);
}
#endif
