#include "common/worker.h"

#include <pthread.h>

#include "support/log_capture.h"
#include "support/test.h"

using namespace std::chrono_literals;

// tests/reliability/load_test.cpp has pushes while an action is under way.
TEST(worker, items_run_in_the_order_of_pushing_and_stop_drains_them) {
    const log_capture_t log;
    worker_t<int> worker;
    std::vector<int> done;
    const auto start = [&] {
        worker.start([&](int item) {
            done.push_back(item);
            if (item == 1) {
                throw std::logic_error("no such window");
            }
            if (item == 3) {
                throw item;
            }
        });
    };
#ifdef __GLIBC__  // elsewhere there is no way to be refused a thread
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 60);
    pthread_setattr_default_np(&attributes);
    EXPECT_EQ(error_text(start), "thread constructor failed: Resource temporarily unavailable");
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 23);
    pthread_setattr_default_np(&attributes);
#endif
    worker.push_event(0);
    start();
    worker.start([](int) { ADD_FAILURE() << "it runs already"; });
    worker.push_event(1);
    worker.push_event(2);
    worker.stop();
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(log.lines(), lines_t{"E Error processing event: no such window"});
    EXPECT_DEATH((start(), worker.push_event(3), worker.stop()), "terminat");
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
        while (round % 3 == 2 && executed < 2) {  // and is about to sleep again
        }
        wait_busily(round % 100 * 10ns);
        worker.stop();
        ASSERT_EQ(executed, round % 3);
    }
}
