#include "common/config/config_watcher.h"

#include <gtest/gtest.h>

#include <algorithm>
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
        // A change may be older than the watcher's first look; the next one is not.
        for (int change = 1; change < 20 && !log.has(detected); ++change) {
            put(std::string(100U + change, '.'));
            (void)log.wait_for(detected, 1, settle_delay + 1s);
        }
        EXPECT_EQ(log.count(detected), 1U);
        watcher->subscribe([](const fs::path&) { throw std::runtime_error("cannot reload"); });
        watcher->subscribe([this](const fs::path& changed) {
            EXPECT_EQ(changed, path);
            seen_sizes.push_back(fs::is_regular_file(path) ? static_cast<int>(fs::file_size(path))
                                                           : -1);
        });
        return watcher;
    }

    temporary_home_t home;
    fs::path path = home.path() / "watched";
    log_capture_t log;
    std::string detected = "I Config change detected: " + path.string();
    std::vector<int> seen_sizes;  // by the subscriber; -1 when there is no file
};

}  // namespace

TEST_F(config_watcher, tells_of_every_kind_of_change) {
    const auto missing = home.path() / "missing";
    const auto unusable = home.path() / std::string(300, 'x');  // longer than a name may be
    const config_watcher_t quiet(missing, 5ms, 0ms);
    const config_watcher_t refused(unusable, 5ms, 0ms);
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
    EXPECT_EQ(seen_sizes, (std::vector<int>{18, 18, -1, -1}));
    // The subscriber that threw each time has stopped neither the other one nor the watching.
    EXPECT_EQ(log.count("E Config callback threw: cannot reload"), 4U);
    EXPECT_FALSE(log.has("I Config change detected: " + missing.string()));
    const auto lines = log.lines();
    const auto refusal = "W FS check failed for " + unusable.string() + ": ";
    EXPECT_GT(std::count_if(lines.begin(), lines.end(),
                            [&](const auto& line) { return line.starts_with(refusal); }),
              2);
}

TEST_F(config_watcher, tells_once_of_a_burst_and_only_when_it_has_settled) {
    const auto watcher = watch(1000ms);
    for (std::size_t size = 1; size <= 20; ++size) {
        put(std::string(size, 'x'));
    }
    EXPECT_TRUE(log.wait_for(detected, 2));
    fs::remove(path);  // a second notification of the burst would come before this one's
    EXPECT_TRUE(log.wait_for(detected, 3));
    watcher->stop();
    EXPECT_EQ(seen_sizes, (std::vector<int>{20, -1}));
}

TEST_F(config_watcher, stops_once_without_waiting_for_the_next_look) {
    // Early in the thread's life or when it sleeps; waiting for the deadline would take an hour.
    for (std::size_t round = 0; round < 500; ++round) {
        config_watcher_t watcher(path, 1h, 1h);
        if (round % 2 == 0) {
            ASSERT_TRUE(log.wait_for("I Watching config file: " + path.string(), round + 1));
        }
        watcher.stop();
    }
    EXPECT_EQ(log.count("I Stopping config watcher for file: " + path.string()), 500U);
    EXPECT_EQ(log.count("I Config watcher loop exit: " + path.string()), 500U);
}
