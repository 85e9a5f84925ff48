#pragma once

#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/log/log.h"

// Collects what the "app" logger gets from its construction to the end of the test's process, each
// line as "E message", with the level's letter.
class log_capture_t {
  public:
    log_capture_t() : _sink(std::make_shared<sink_t>()) {
        utils::set_all_logger_sinks(_sink);
        utils::set_all_log_level(spdlog::level::trace);
    }
    log_capture_t(const log_capture_t&) = delete;
    log_capture_t& operator=(const log_capture_t&) = delete;

    std::vector<std::string> lines() const {
        const std::lock_guard lock(_sink->mutex);
        return _sink->lines;
    }

    std::size_t count(const std::string& line) const {
        const auto all = lines();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
    }

    bool has(const std::string& line) const { return count(line) > 0; }

    void forget() {
        const std::lock_guard lock(_sink->mutex);
        _sink->lines.clear();
    }

    // Waits until the line has come `times` times in all; false when it takes longer.
    bool wait_for(const std::string& line, std::size_t times = 1,
                  std::chrono::milliseconds at_most = std::chrono::seconds(10)) const {
        std::unique_lock lock(_sink->mutex);
        return _sink->changed.wait_for(lock, at_most, [&] {
            return static_cast<std::size_t>(
                       std::count(_sink->lines.begin(), _sink->lines.end(), line)) >= times;
        });
    }

  private:
    struct sink_t : spdlog::sinks::sink {
        void log(const spdlog::details::log_msg& message) override {
            const std::lock_guard lock(mutex);
            const auto level = spdlog::level::to_short_c_str(message.level);
            lines.push_back(std::string(level) + " " +
                            std::string(message.payload.data(), message.payload.size()));
            changed.notify_all();
        }
        void flush() override {}
        void set_pattern(const std::string&) override {}
        void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> lines;
    };

    std::shared_ptr<sink_t> _sink;
};
