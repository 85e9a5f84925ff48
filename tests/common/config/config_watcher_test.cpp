#include "common/config/config_watcher.h"

#include <dlfcn.h>

#include "support/log_capture.h"
#include "support/test.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

struct config_watcher : testing::Test {
    config_watcher() { lead_to("link"); }

    // Where the folder of the watched file leads: "." to the file; "link" in a circle, which the
    // file system refuses to follow.
    void lead_to(const char* target) {
        fs::create_symlink(target, beside);
        fs::rename(beside, home.path() / "link");
    }

    void put(std::size_t size, fs::file_time_type time = fs::file_time_type::clock::now()) {
        std::ofstream(beside) << std::string(size, '.');
        fs::last_write_time(beside, time);
        fs::rename(beside, home.path() / "watched");
    }

    std::size_t refusals() const {
        return log.count_beginning("W FS check failed for " + path.string() + ": ");
    }

    // Lets the watcher look at the file at least twice while the file system refuses to tell.
    void refuse() {
        lead_to("link");
        EXPECT_TRUE(wait_until([&, before = refusals()] { return refusals() > before + 1; }));
    }

    // A watcher that has taken its first look, which was refused.
    std::unique_ptr<config_watcher_t> watch(std::chrono::milliseconds settle_delay) {
        auto watcher = std::make_unique<config_watcher_t>(path, 5ms, settle_delay);
        watcher->subscribe([](const fs::path&) { throw std::runtime_error("cannot reload"); });
        watcher->subscribe([this](const fs::path& changed) {
            std::error_code none;
            seen_sizes.push_back(changed == path ? static_cast<int>(fs::file_size(path, none))
                                                 : -2);
        });
        refuse();
        return watcher;
    }

    temporary_home_t home;
    const fs::path path = home.path() / "link" / "watched";
    const fs::path beside = home.path() / "beside";
    log_capture_t log;
    const std::string told = "I Config change detected: ";
    std::vector<int> seen_sizes;  // by the subscriber; -1 when there is no file
};

std::atomic<bool> falls_asleep{false};

}  // namespace

// The system's, in whose place it is linked. The watcher's thread takes its time from its look at
// what it is told to its sleep.
extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* end) {
    static void* const next = dlsym(RTLD_NEXT, "pthread_cond_clockwait");
    falls_asleep = true;
    std::this_thread::sleep_for(2ms);
    return reinterpret_cast<decltype(&pthread_cond_clockwait)>(next)(condition, mutex, clock, end);
}

TEST_F(config_watcher, tells_of_every_kind_of_change_and_of_nothing_else) {
    std::ofstream(home.path() / "still") << "as it is";
    const config_watcher_t quiet[] = {{home.path() / "missing", 5ms, 0ms},
                                      {home.path() / "still", 5ms, 0ms}};
    const auto watcher = watch(0ms);
    const auto time = fs::file_time_type::clock::now();
    std::size_t changes = 0;
    for (const auto& change : std::initializer_list<std::function<void()>>{
             [&] { put(6, time); }, [&] { put(7, time); }, [&] { put(7, time + 1h); },
             [&] { put(7, time); }, [&] { fs::remove(path); }, [&] { fs::create_directory(path); },
             [&] { watcher->unsubscribe_all(), fs::remove(path); }}) {
        lead_to(".");
        change();
        EXPECT_TRUE(log.wait_for(told + path.string(), ++changes));
        refuse();
    }
    watcher->stop();
    EXPECT_EQ(seen_sizes, (std::vector<int>{6, 7, 7, 7, -1, -1}));
    // The subscriber that threw each time has stopped neither the other one nor the watching.
    EXPECT_EQ(log.count("E Config callback threw: cannot reload"), seen_sizes.size());
    EXPECT_EQ(log.count_beginning(told), changes);
}

TEST_F(config_watcher, tells_once_of_a_burst_when_it_has_settled_and_skips_the_looks_until_then) {
    const auto watcher = watch(500ms);
    watcher->subscribe([this](const fs::path&) { lead_to("link"); });
    lead_to(".");
    const auto before = refusals();
    for (std::size_t size = 1; size <= 5; ++size) {
        put(size);
    }
    EXPECT_TRUE(log.wait_for(told + path.string()));
    std::this_thread::sleep_for(50ms);
    EXPECT_LT(refusals() - before, 90U);  // the settling took a hundred periods
    lead_to(".");
    // Anything that it has not seen would settle now, and be told at the stop.
    std::this_thread::sleep_for(50ms);
    watcher->stop();
    EXPECT_EQ(seen_sizes, std::vector<int>{5});
}

TEST_F(config_watcher, tells_at_its_stop_of_a_change_that_still_settles) {
    // Longer and longer, until the watcher sees the change before the stop.
    for (auto pause = 20ms; seen_sizes.empty() && pause < 2s; pause *= 2) {
        const auto watcher = watch(1h);
        put(1);
        lead_to(".");
        std::this_thread::sleep_for(pause);
        put(2);
    }
    EXPECT_EQ(seen_sizes, std::vector<int>{2});
}

TEST_F(config_watcher, stops_once_without_waiting_for_the_next_look) {
    // While its thread starts, falls asleep, sleeps; waiting for the deadline would take an hour.
    for (int round = 0; round < 400; ++round) {
        log.forget();
        falls_asleep = false;
        config_watcher_t watcher(path, 1h, 1h);
        wait_until([] { return falls_asleep.load(); }, round % 2 * 100ms);
        wait_busily(round * 250ns);
        watcher.stop();
        watcher.stop();
        EXPECT_EQ(log.count("I Stopping config watcher for file: " + path.string()), 1U);
        EXPECT_EQ(log.count("I Config watcher loop exit: " + path.string()), 1U);
    }
}
