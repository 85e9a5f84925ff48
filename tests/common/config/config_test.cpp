#include "common/config/config.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <set>
#include <string>
#include <utility>

#include "support/error_text.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using std::chrono::steady_clock;

namespace {

// The settings of one mouse, with `code` bound to the inputs 0 and x1_button (4) everywhere.
std::string mouse_entry(const std::string& type, int code) {
    const auto list = R"([{"action":)" + std::to_string(code) + "}]";
    return R"({"type":)" + type + R"(,"appConfigs":{"default":{"0":)" + list + R"(,"4":)" + list +
           "}}}";
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
    // Behind the watcher's first look, and 80 ms before the next: less than the file has to settle.
    void come_late_in_the_first_period() {
        ASSERT_TRUE(log.wait_for("I Watching config file: " + path));
        std::this_thread::sleep_for(420ms);
    }

    // Replaces the file, or removes it for an empty text, and waits until the daemon's watcher has
    // dealt with it.
    void reload(const std::string& text) {
        const auto handled = "I Config change detected: " + path;
        const auto before = log.count(handled);
        const auto begin = steady_clock::now();
        if (text.empty()) {
            fs::remove(path);
        } else {
            home.write_settings(text);
        }
        ASSERT_TRUE(log.wait_for(handled, before + 1)) << text;
        fastest = std::min<steady_clock::duration>(fastest, steady_clock::now() - begin);
    }

    temporary_home_t home;
    std::string path = home.settings_file().string();
    log_capture_t log;
    steady_clock::duration fastest = 1h;  // of the reloads
};

}  // namespace

TEST_F(config, loads_the_file_at_the_first_use_and_merges_what_comes_later) {
    const auto text = settings(mouse_entry("1", 6) + "," + mouse_entry("2", 6) + "," +
                               mouse_entry("1.9", 8) + "," + mouse_entry("-2", 9) + "," +
                               mouse_entry("1e300", 10) + "," + mouse_entry("4294967298", 10));
    home.write_settings(text);
    EXPECT_EQ(answer(1) + " " + answer(2), "paste copy");  // the later of two entries for 1
    EXPECT_EQ(answer(0xFFFFFFFE), "screenshot");
    for (const auto& none : {answer(0xFFFFFFFF), answer(0), answer(1, 0), answer(1, 5)}) {
        EXPECT_EQ(none, "default_action");
    }
    come_late_in_the_first_period();
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"I Using user directory: " + home.user_data().string(),
                                        "I config loaded " + json::parse(text).dump(),
                                        "I mice loaded", "I Watching config file: " + path}));

    const std::string no_state = "E appState not in config or not an array";
    const std::string invalid = "E Config file JSON is invalid: ";
    for (const auto& [refused, line] :
         {std::pair{R"({"appState":[],"a":"é"})",
                    std::string(R"(I config loaded {"a":"é","appState":[]})")},
          {"", "E Failed to open config file: " + path},
          {"null", no_state},
          {R"({"appState":{}})", no_state},
          {"[1e400]",
           invalid + "[json.exception.out_of_range.406] number overflow parsing '1e400'"}}) {
        log.forget();
        reload(refused);
        EXPECT_TRUE(log.has(line)) << line;
        EXPECT_NE(log.has("I mice loaded"), line.find(" file") != std::string::npos) << line;
        EXPECT_EQ(answer(1) + " " + answer(2), "paste copy") << line;
    }
    // The file is looked at every 500 ms and left alone for 150 ms after a change.
    EXPECT_GE(fastest, 150ms);
    EXPECT_LT(fastest, 1s);

    reload(settings("7,{}," + mouse_entry("2", 7)));  // a model that is not mentioned stays
    EXPECT_EQ(log.count("E type not in config"), 2U);
    EXPECT_EQ(answer(1) + " " + answer(2), "paste cut");

    // An entry that cannot be used: those before it hold, those after it are not reached.
    reload(settings(mouse_entry("1", 6) + R"(,{"type":2},)" + mouse_entry("2", 8)));
    EXPECT_EQ(log.count_beginning("E Config callback threw: [json.exception.out_of_range.403] "),
              1U);
    EXPECT_EQ(answer(1) + " " + answer(2), "copy cut");
}

TEST_F(config, events_do_not_wait_for_a_load_and_get_whole_answers) {
    std::atomic<bool> may_load{false};
    const auto text = settings(mouse_entry("1", 6));
    const auto parsed = "I config loaded " + json::parse(text).dump();
    log.hold(parsed, [&] { return may_load.load(); });
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_TRUE(fs::is_directory(home.user_data()));
    EXPECT_TRUE(log.has("E Failed to open config file: " + path));
    come_late_in_the_first_period();
    home.write_settings(text);
    ASSERT_TRUE(log.wait_for(parsed));
    EXPECT_EQ(answer(1), "default_action");  // with the lock held it would come after the load
    may_load = true;
    ASSERT_TRUE(log.wait_for("I Config change detected: " + path));
    EXPECT_TRUE(log.has("I Config file change detected, reloading: " + path));

    std::set<std::string> answers;
    int change = 0;
    EXPECT_TRUE(wait_until([&] {
        home.write_settings(settings(mouse_entry("1", 6 + ++change % 2)));
        for (int app = 0; app < 100; ++app) {
            answers.insert(answer(1, 4, std::to_string(app)));
        }
        return log.count("I mice loaded") > 3 && answers.size() > 1;
    }));
    EXPECT_EQ(answers, (std::set<std::string>{"copy", "cut"}));

    // A load that is still under way when the process ends.
    std::string entries = mouse_entry("0", 6);
    for (int type = 1; type < 10'000; ++type) {
        entries += "," + mouse_entry(std::to_string(type), 6);
    }
    home.write_settings(settings(entries));
    EXPECT_TRUE(log.wait_for("I config loaded " + json::parse(settings(entries)).dump()));
}

TEST_F(config, a_folder_that_cannot_be_named_or_made_is_said) {
    std::ofstream(home.path() / "Library") << "in the way";
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_EQ(log.count_beginning("E Failed to create config folder: "), 1U);
    EXPECT_TRUE(log.has("E Failed to open config file: "));

    setenv("HOME", "", 1);
    EXPECT_EQ(config_t::get_user_data_path(), "Library/Application Support/QlxControlCenter");
    EXPECT_EQ(config_t::get_log_data_path(), "Library/Logs/QlxDaemon.log");
    unsetenv("HOME");
    for (const auto path_of : {config_t::get_user_data_path, config_t::get_log_data_path}) {
        EXPECT_EQ(error_text(path_of), "HOME not set");
    }
}
