#pragma once

#include <spdlog/sinks/sink.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "common/log/log.h"
#include "support/wait_until.h"

// Collects what the "app" logger gets from its construction to the end of the test's process, each
// line as "E message", with the level's letter.
class log_capture_t {
  public:
    log_capture_t() {
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

    std::size_t count_beginning(const std::string& text) const {
        const auto all = lines();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [&](const auto& line) { return line.starts_with(text); }));
    }

    bool has(const std::string& line) const { return count(line) > 0; }

    void forget() {
        const std::lock_guard lock(_sink->mutex);
        _sink->lines.clear();
    }

    // Waits until the line has come `times` times in all; false when it takes longer.
    bool wait_for(const std::string& line, std::size_t times = 1,
                  std::chrono::milliseconds at_most = std::chrono::seconds(10)) const {
        return wait_until([&] { return count(line) >= times; }, at_most);
    }

    // Whoever logs the line goes on only when `condition` holds. Call it before other threads log.
    void hold(const std::string& line, std::function<bool()> condition) {
        _sink->held_line = line;
        _sink->may_go_on = std::move(condition);
    }

  private:
    struct sink_t : spdlog::sinks::sink {
        void log(const spdlog::details::log_msg& message) override {
            const auto line = std::string(spdlog::level::to_short_c_str(message.level)) + " " +
                              std::string(message.payload.data(), message.payload.size());
            {
                const std::lock_guard lock(mutex);
                lines.push_back(line);
            }
            if (line == held_line) {
                (void)wait_until(may_go_on);
            }
        }
        void flush() override {}
        void set_pattern(const std::string&) override {}
        void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

        std::mutex mutex;
        std::vector<std::string> lines;
        std::string held_line;
        std::function<bool()> may_go_on;
    };

    const std::shared_ptr<sink_t> _sink = std::make_shared<sink_t>();
};
