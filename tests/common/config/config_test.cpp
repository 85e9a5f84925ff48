#include "common/config/config.h"

#include <gtest/gtest.h>
#include <spdlog/details/null_mutex.h>

#include <atomic>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// The settings of one mouse, with `code` bound to x1_button (4) everywhere.
std::string mouse_entry(const std::string& type, int code) {
    return R"({"type":)" + type + R"(,"appConfigs":{"default":{"4":[{"action":)" +
           std::to_string(code) + "}]}}}";
}

std::string settings(const std::string& entries) {
    return R"({"appState":[)" + entries + "]}";
}

std::string answer(std::uint32_t device, std::uint32_t input = 4,
                   const std::string& app = "Some App") {
    return std::string(action_name(config_t::instance().retrieve_action(
        static_cast<qlx_device_e>(device), static_cast<input_value_e>(input), app)));
}

struct config : testing::Test {
    // Replaces the file and waits until the daemon's watcher has dealt with it.
    void reload(const std::string& text) {
        const auto handled = "I Config change detected: " + path;
        const auto before = log.count(handled);
        // The first change may be older than the watcher's first look; the next one is not.
        for (int attempt = 0; attempt < 5 && log.count(handled) == before; ++attempt) {
            home.write_settings(text);
            (void)log.wait_for(handled, before + 1, 4s);
        }
        ASSERT_GT(log.count(handled), before) << text;
    }

    temporary_home_t home;
    std::string path = home.settings_file().string();
    log_capture_t log;
};

}  // namespace

TEST_F(config, the_first_use_loads_the_file_and_watches_it) {
    const auto text = settings(mouse_entry("1", 6) + "," + mouse_entry("2", 7) + "," +
                               mouse_entry("1.9", 8) + "," + mouse_entry("-2", 9) + "," +
                               mouse_entry("1e300", 10) + "," + mouse_entry("4294967298", 10));
    home.write_settings(text);
    EXPECT_EQ(answer(1), "paste");  // the later of two entries
    EXPECT_EQ(answer(2), "cut");
    EXPECT_EQ(answer(0xFFFFFFFE), "screenshot");
    EXPECT_EQ(answer(0xFFFFFFFF), "default_action");
    EXPECT_EQ(answer(0), "default_action");
    EXPECT_EQ(answer(1, 0), "default_action");
    EXPECT_EQ(answer(1, 5), "default_action");
    ASSERT_TRUE(log.wait_for("I Watching config file: " + path));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"I Using user directory: " + home.user_data().string(),
                                        "I config loaded " + json::parse(text).dump(),
                                        "I mice loaded", "I Watching config file: " + path}));
}

TEST_F(config, a_missing_file_may_come_later_and_events_do_not_wait_for_its_load) {
    // Holds whoever logs that the file is parsed; this stands in the middle of a load.
    struct holding_sink_t : spdlog::sinks::base_sink<spdlog::details::null_mutex> {
        void sink_it_(const spdlog::details::log_msg& message) override {
            if (std::string_view(message.payload.data(), message.payload.size()) == held_line) {
                released = gate.wait_for(10s) == std::future_status::ready;
            }
        }
        void flush_() override {}

        std::string held_line;
        std::promise<void> go_on;
        std::shared_future<void> gate = go_on.get_future();
        std::atomic<bool> released{false};
    };
    const auto text = settings(mouse_entry("1", 6));
    const auto sink = std::make_shared<holding_sink_t>();
    sink->held_line = "config loaded " + json::parse(text).dump();
    utils::add_all_logger_sinks(sink);
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_TRUE(fs::is_directory(home.user_data()));
    EXPECT_TRUE(log.has("E Failed to open config file: " + path));
    ASSERT_TRUE(log.wait_for("I Watching config file: " + path));

    for (std::size_t change = 0; change < 20 && !log.has("I " + sink->held_line); ++change) {
        home.write_settings(text + std::string(change, ' '));
        (void)log.wait_for("I " + sink->held_line, 1, 1s);
    }
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(answer(1), "default_action");
    }
    sink->go_on.set_value();
    ASSERT_TRUE(log.wait_for("I Config change detected: " + path));
    EXPECT_TRUE(sink->released);
    EXPECT_EQ(answer(1), "copy");
    EXPECT_TRUE(log.has("I Config file change detected, reloading: " + path));
}

TEST_F(config, a_storm_of_reloads_and_events_gives_whole_answers_only) {
    const auto write = [&](int code) {
        home.write_settings(settings(mouse_entry("1", code) + "," + mouse_entry("2", code)));
    };
    write(6);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> seen{0};  // 1 for copy, 2 for cut, 4 for anything else
    std::thread events([&] {
        for (std::uint32_t round = 0; !stop; ++round) {
            const auto name = answer(1 + round % 2, 4, std::to_string(round));
            seen |= name == "copy" ? 1U : name == "cut" ? 2U : 4U;
        }
    });
    // Changing all the time, so that the watcher reloads as often as it can.
    const auto give_up = std::chrono::steady_clock::now() + 60s;
    for (int change = 0;
         (log.count("I mice loaded") < 6 || seen < 3) && std::chrono::steady_clock::now() < give_up;
         ++change) {
        write(6 + change % 2);
        std::this_thread::yield();
    }
    stop = true;
    events.join();
    EXPECT_GE(log.count("I mice loaded"), 6U);
    EXPECT_EQ(seen, 3U);
}

TEST_F(config, reloads_merge_and_refused_files_change_nothing) {
    home.write_settings(settings(mouse_entry("1", 6) + "," + mouse_entry("2", 6)));
    ASSERT_EQ(answer(1), "copy");
    const std::string no_state = "E appState not in config or not an array";
    const std::string invalid = "E Config file JSON is invalid: ";
    for (const auto& [text, line] :
         {std::pair{R"({"appState":[],"a":"é"})",
                    std::string(R"(I config loaded {"a":"é","appState":[]})")},
          {"null", no_state},
          {R"({"appState":{}})", no_state},
          {"[1e400]",
           invalid + "[json.exception.out_of_range.406] number overflow parsing '1e400'"}}) {
        log.forget();
        reload(text);
        EXPECT_TRUE(log.has(line)) << line;
        EXPECT_NE(log.has("I mice loaded"), line.starts_with(invalid)) << line;
        EXPECT_EQ(answer(1) + " " + answer(2), "copy copy") << line;
    }
    log.forget();
    fs::remove(path);
    ASSERT_TRUE(log.wait_for("I Config change detected: " + path));
    EXPECT_TRUE(log.has("E Failed to open config file: " + path));
    EXPECT_EQ(answer(1) + " " + answer(2), "copy copy");

    reload(settings("7,{}," + mouse_entry("2", 7)));  // a model that is not mentioned stays
    EXPECT_EQ(log.count("E type not in config"), 2U);
    EXPECT_EQ(answer(1) + " " + answer(2), "copy cut");

    // An entry that cannot be used: those before it hold, those after it are not reached.
    reload(settings(mouse_entry("1", 8) + R"(,{"type":2},)" + mouse_entry("2", 8)));
    EXPECT_TRUE(
        log.has("E Config callback threw: [json.exception.out_of_range.403] key 'appConfigs' not "
                "found"));
    EXPECT_EQ(answer(1) + " " + answer(2), "paste cut");
}

TEST_F(config, a_folder_that_cannot_be_made_is_said) {
    std::ofstream(home.path() / "Library") << "in the way";
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_EQ(log.lines()[0].rfind("E Failed to create config folder: ", 0), 0U);
    EXPECT_EQ(log.lines()[1], "E Failed to open config file: ");
}
