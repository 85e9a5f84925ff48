#include "common/config/config_watcher.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

struct config_watcher : testing::Test {
    config_watcher() { put("first"); }

    // In one step, so that no look at the file meets it half-written.
    void put(const std::string& text, fs::file_time_type time = fs::file_time_type::clock::now()) {
        const auto beside = home.path() / "beside";
        std::ofstream(beside, std::ios::binary) << text;
        fs::last_write_time(beside, time);
        fs::rename(beside, path);
    }

    std::unique_ptr<config_watcher_t> watch(std::chrono::milliseconds settle_delay) {
        auto watcher = std::make_unique<config_watcher_t>(path, 20ms, settle_delay);
        watcher->subscribe([this](const fs::path& changed) {
            EXPECT_EQ(changed, path);
            std::error_code error;
            const auto size = fs::file_size(path, error);
            seen_sizes.push_back(error ? -1 : static_cast<int>(size));
        });
        // A change may be older than the watcher's first look; the next one is not.
        for (int change = 1; change < 20 && !log.has(detected); ++change) {
            put(std::string(100U + change, '.'));
            (void)log.wait_for(detected, 1, settle_delay + 1s);
        }
        EXPECT_EQ(log.count(detected), 1U);
        return watcher;
    }

    temporary_home_t home;
    fs::path path = home.path() / "watched";
    log_capture_t log;
    std::string detected = "I Config change detected: " + path.string();
    std::vector<int> seen_sizes;  // by the subscriber; -1 for a missing file
};

}  // namespace

TEST_F(config_watcher, tells_of_every_kind_of_change) {
    const auto watcher = watch(0ms);
    const auto time = fs::last_write_time(path);
    put("new size, old time", time);
    EXPECT_TRUE(log.wait_for(detected, 2));
    put("new time, old size", time + 1h);
    EXPECT_TRUE(log.wait_for(detected, 3));
    fs::remove(path);
    EXPECT_TRUE(log.wait_for(detected, 4));
    fs::create_directory(path);
    EXPECT_TRUE(log.wait_for(detected, 5));
    watcher->unsubscribe_all();
    fs::remove(path);
    EXPECT_TRUE(log.wait_for(detected, 6));
    watcher->stop();
    ASSERT_EQ(seen_sizes.size(), 5U);
    EXPECT_EQ((std::vector<int>(seen_sizes.begin() + 1, seen_sizes.begin() + 4)),
              (std::vector<int>{18, 18, -1}));
}

TEST_F(config_watcher, tells_once_of_a_burst_and_only_when_it_has_settled) {
    const auto watcher = watch(1000ms);
    for (int size = 1; size <= 20; ++size) {
        put(std::string(static_cast<std::size_t>(size), 'x'));
    }
    EXPECT_TRUE(log.wait_for(detected, 2));
    fs::remove(path);  // a second notification of the burst would come before this one's
    EXPECT_TRUE(log.wait_for(detected, 3));
    watcher->stop();
    EXPECT_EQ((std::vector<int>(seen_sizes.begin() + 1, seen_sizes.end())),
              (std::vector<int>{20, -1}));
}

TEST_F(config_watcher, a_subscriber_that_throws_stops_neither_the_others_nor_the_watching) {
    const auto watcher = watch(0ms);
    watcher->subscribe([](const fs::path&) { throw std::runtime_error("cannot reload"); });
    watcher->subscribe(nullptr);
    std::atomic<int> last_called{0};
    watcher->subscribe([&](const fs::path&) { ++last_called; });
    put("second");
    EXPECT_TRUE(log.wait_for(detected, 2));
    put("and third");
    EXPECT_TRUE(log.wait_for(detected, 3));
    EXPECT_EQ(last_called, 2);
    EXPECT_EQ(log.count("E Config callback threw: cannot reload"), 2U);
    EXPECT_EQ(log.count("E Config callback threw: bad_function_call"), 2U);
}

TEST_F(config_watcher, says_nothing_of_a_file_that_never_exists_and_stops_once) {
    const auto missing = (home.path() / "missing").string();
    {
        config_watcher_t quiet(missing, 1ms, 0ms);
        const auto watcher = watch(0ms);  // takes many of the other's periods
        quiet.stop();
        quiet.stop();
    }
    std::vector<std::string> lines;
    for (const auto& line : log.lines()) {
        if (line.find(missing) != std::string::npos) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"I Watching config file: " + missing,
                                               "I Stopping config watcher for file: " + missing,
                                               "I Config watcher loop exit: " + missing}));
}

TEST_F(config_watcher, goes_on_when_the_file_system_refuses_to_tell) {
    const auto unusable = home.path() / std::string(300, 'x');  // longer than a name may be
    config_watcher_t watcher(unusable, 1ms, 0ms);
    const auto refusals = [&] {
        std::size_t count = 0;
        for (const auto& line : log.lines()) {
            count +=
                line.rfind("W FS check failed for " + unusable.string() + ": ", 0) == 0 ? 1 : 0;
        }
        return count;
    };
    const auto give_up = std::chrono::steady_clock::now() + 10s;
    while (refusals() < 3 && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::yield();
    }
    EXPECT_GE(refusals(), 3U);
}

TEST_F(config_watcher, stopping_does_not_wait_for_the_next_look) {
    // Early in the thread's life or when it sleeps; waiting for the deadline would take an hour.
    for (int round = 0; round < 500; ++round) {
        config_watcher_t watcher(path, 1h, 1h);
        if (round % 2 == 0) {
            ASSERT_TRUE(log.wait_for("I Watching config file: " + path.string(),
                                     static_cast<std::size_t>(round) / 2));
        }
    }
}
