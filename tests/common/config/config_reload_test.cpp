#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "common/config/config.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

using namespace std::chrono_literals;

namespace {

// Settings of many applications, with `code` bound to every input.
std::string settings(int code) {
    const auto list = "[{\"action\":" + std::to_string(code) + "}]";
    const auto bindings = R"(":{"4":)" + list + R"(,"5":)" + list + "}";
    std::string apps = R"("default":{"3":)" + list + "}";
    for (int app = 0; app < 200; ++app) {
        apps += R"(,"app)";
        apps += std::to_string(app);
        apps += bindings;
    }
    return R"({"appState":[{"type":1,"appConfigs":{)" + apps + R"(}},{"type":2,"appConfigs":{)" +
           apps + "}}]}";
}

action_t retrieve(int round) {
    return config_t::instance().retrieve_action(static_cast<qlx_device_e>(1 + round % 2),
                                                static_cast<input_value_e>(3 + round % 3),
                                                "App " + std::to_string(round % 300));
}

}  // namespace

TEST(config_reload, a_storm_of_reloads_and_events_gives_whole_answers_only) {
    const temporary_home_t home;
    const log_capture_t log;
    home.write_settings(settings(6));
    (void)config_t::instance();

    std::atomic<bool> stop{false};
    std::atomic<bool> copied{false};
    std::atomic<bool> cut{false};
    std::string odd_answer;
    std::thread events([&] {
        for (int round = 0; !stop; ++round) {
            const auto name = action_name(retrieve(round));
            copied = copied || name == "copy";
            cut = cut || name == "cut";
            // What no application binds is the default action; all else is one of the two files'.
            if (name != "copy" && name != "cut" && name != "default_action") {
                odd_answer = name;
            }
        }
    });
    // Changing all the time, so that the watcher reloads as often as it can.
    const auto give_up = std::chrono::steady_clock::now() + 60s;
    for (int change = 0; log.count("I mice loaded") < 6; ++change) {
        home.write_settings(settings(6 + change % 2));
        if (std::chrono::steady_clock::now() > give_up) {
            ADD_FAILURE() << "no six loads within a minute";
            break;
        }
        std::this_thread::yield();
    }
    stop = true;
    events.join();
    EXPECT_EQ(odd_answer, "");
    EXPECT_TRUE(copied);
    EXPECT_TRUE(cut);
}

TEST(config_reload, events_do_not_wait_for_a_reload_that_is_under_way) {
    // Holds whoever logs that the file is parsed; this stands in the middle of a reload.
    struct holding_sink_t : spdlog::sinks::sink {
        void log(const spdlog::details::log_msg& message) override {
            const std::string text(message.payload.data(), message.payload.size());
            if (armed && text.rfind("config loaded", 0) == 0) {
                armed = false;
                held.set_value();
                released = go_on.get_future().wait_for(10s) == std::future_status::ready;
            } else if (text == "mice loaded") {
                ++loads;
            }
        }
        void flush() override {}
        void set_pattern(const std::string&) override {}
        void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

        std::atomic<bool> armed{false};
        std::atomic<bool> released{false};
        std::atomic<int> loads{0};
        std::promise<void> held;
        std::promise<void> go_on;
    };
    const temporary_home_t home;
    const auto sink = std::make_shared<holding_sink_t>();
    utils::set_all_logger_sinks(sink);
    home.write_settings(settings(6));
    ASSERT_EQ(action_name(retrieve(0)), "copy");

    sink->armed = true;
    auto held = sink->held.get_future();
    // A change may be older than the watcher's first look; the next one is not.
    for (int change = 0; change < 20; ++change) {
        home.write_settings(settings(7) + std::string(static_cast<std::size_t>(change), ' '));
        if (held.wait_for(1s) == std::future_status::ready) {
            break;
        }
    }
    for (int round = 0; round < 1000; ++round) {
        ASSERT_NE(action_name(retrieve(round)), "cut");
    }
    sink->go_on.set_value();
    const auto give_up = std::chrono::steady_clock::now() + 10s;
    while (sink->loads < 2 && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(sink->released);
    EXPECT_EQ(action_name(retrieve(0)), "cut");
}
