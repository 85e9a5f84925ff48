#include "common/config/config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
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

std::string answer(std::uint32_t device, std::uint32_t input = 4) {
    return std::string(action_name(config_t::instance().retrieve_action(
        static_cast<qlx_device_e>(device), static_cast<input_value_e>(input), "Some App")));
}

struct config : testing::Test {
    std::string path() const { return home.settings_file().string(); }

    // Replaces the file and waits until the daemon's watcher has dealt with it.
    void reload(const std::string& text) {
        const auto handled = "I Config change detected: " + path();
        const auto before = log.count(handled);
        for (int attempt = 0; attempt < 5; ++attempt) {
            home.write_settings(text);
            // The first change may be older than the watcher's first look; the next one is not.
            if (log.wait_for(handled, before + 1, std::chrono::seconds(4))) {
                return;
            }
        }
        FAIL() << "not reloaded: " << text;
    }

    temporary_home_t home;
    log_capture_t log;
};

const char* const invalid = "E Config file JSON is invalid: ";

}  // namespace

TEST_F(config, the_first_use_loads_the_file_and_watches_it) {
    const auto text =
        settings(mouse_entry("1", 6) + "," + mouse_entry("2", 7) + "," + mouse_entry("1", 8));
    home.write_settings(text);
    EXPECT_EQ(answer(1), "paste");  // the later of two entries
    EXPECT_EQ(answer(2), "cut");
    EXPECT_EQ(answer(0), "default_action");
    EXPECT_EQ(answer(1, 0), "default_action");
    EXPECT_EQ(answer(1, 5), "default_action");
    EXPECT_EQ(answer(0xFFFFFFFF), "default_action");
    ASSERT_TRUE(log.wait_for("I Watching config file: " + path()));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"I Using user directory: " + home.user_data().string(),
                                        "I config loaded " + json::parse(text).dump(),
                                        "I mice loaded", "I Watching config file: " + path()}));
}

TEST_F(config, a_missing_file_leaves_no_profiles_and_may_come_later) {
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_TRUE(fs::is_directory(home.user_data()));
    EXPECT_TRUE(log.has("E Failed to open config file: " + path()));
    reload(settings(mouse_entry("1", 6)));
    EXPECT_EQ(answer(1), "copy");
    EXPECT_TRUE(log.has("I Config file change detected, reloading: " + path()));
}

TEST_F(config, reloads_merge_and_refused_files_change_nothing) {
    home.write_settings(settings(mouse_entry("1", 6) + "," + mouse_entry("2", 6)));
    ASSERT_EQ(answer(1), "copy");
    const auto expect_unchanged = [&](const std::string& line) {
        EXPECT_TRUE(log.has(line)) << line;
        EXPECT_EQ(answer(1), "copy") << line;
        EXPECT_EQ(answer(2), "copy") << line;
        log.forget();
    };

    reload(R"({"appState":[],"other":"é"})");
    EXPECT_TRUE(log.has("I mice loaded"));
    expect_unchanged(R"(I config loaded {"appState":[],"other":"é"})");

    reload("null");
    EXPECT_TRUE(log.has("I mice loaded"));
    expect_unchanged("E appState not in config or not an array");

    reload(R"({"appState":{}})");
    expect_unchanged("E appState not in config or not an array");

    reload("{");
    EXPECT_EQ(log.lines()[1].rfind(invalid + std::string("[json.exception.parse_error.101]"), 0),
              0U);
    EXPECT_FALSE(log.has("I mice loaded"));
    expect_unchanged(log.lines()[1]);

    reload(settings(std::string(1'000'000, '[')));
    expect_unchanged(invalid + std::string("nested deeper than 128 levels"));

    reload("[1e400]");
    expect_unchanged(invalid +
                     std::string("[json.exception.out_of_range.406] number overflow parsing "
                                 "'1e400'"));

    fs::remove(path());
    ASSERT_TRUE(log.wait_for("I Config change detected: " + path()));
    expect_unchanged("E Failed to open config file: " + path());

    reload(settings("7,{}," + mouse_entry("2", 7)));  // a model that is not mentioned stays
    EXPECT_EQ(log.count("E type not in config"), 2U);
    EXPECT_EQ(answer(1), "copy");
    EXPECT_EQ(answer(2), "cut");

    // An entry that cannot be used: those before it hold, those after it are not reached.
    const std::string wrong_type = R"({"type":"2","appConfigs":{}})";
    reload(settings(mouse_entry("1", 8) + "," + wrong_type + "," + mouse_entry("2", 8)));
    EXPECT_TRUE(
        log.has("E Config callback threw: [json.exception.type_error.302] type must be "
                "number, but is string"));
    EXPECT_EQ(answer(1), "paste");
    EXPECT_EQ(answer(2), "cut");

    reload(settings(mouse_entry("1", 6) + R"(,{"type":2})"));
    EXPECT_TRUE(
        log.has("E Config callback threw: [json.exception.out_of_range.403] key "
                "'appConfigs' not found"));
    EXPECT_EQ(answer(1), "copy");
}

TEST_F(config, every_number_is_a_model_or_none) {
    home.write_settings(settings(mouse_entry("1.9", 6) + "," + mouse_entry("7", 7) + "," +
                                 mouse_entry("-2", 8) + "," + mouse_entry("-1", 9) + "," +
                                 mouse_entry("1e300", 9) + "," + mouse_entry("4294967298", 9) +
                                 "," + mouse_entry("99999999999999999999", 9)));
    EXPECT_EQ(answer(1), "copy");
    EXPECT_EQ(answer(7), "cut");
    EXPECT_EQ(answer(0xFFFFFFFE), "paste");
    EXPECT_EQ(answer(0xFFFFFFFF), "default_action");
    EXPECT_EQ(answer(2), "default_action");
    EXPECT_EQ(answer(0), "default_action");
}

TEST_F(config, wrong_types_in_the_first_file_stop_the_construction_until_they_are_mended) {
    home.write_settings(settings(R"({"type":true,"appConfigs":{}})"));
    EXPECT_THROW(config_t::instance(), json::type_error);
    home.write_settings(settings(R"({"type":1e300,"appConfigs":{"a":{"x":[]}}})"));
    EXPECT_THROW(config_t::instance(), std::invalid_argument);
    home.write_settings(settings(R"({"type":1})"));
    EXPECT_THROW(config_t::instance(), json::out_of_range);
    home.write_settings(settings(mouse_entry("1", 6)));
    EXPECT_EQ(answer(1), "copy");
}

TEST_F(config, a_folder_or_a_pipe_in_the_files_place_cannot_be_opened) {
    fs::create_directories(home.settings_file());
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_TRUE(log.has("E Failed to open config file: " + path()));
    fs::remove(path());
    reload(settings(mouse_entry("1", 6)));
    EXPECT_EQ(answer(1), "copy");
    const auto pipe = home.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    log.forget();
    fs::rename(pipe, path());
    ASSERT_TRUE(log.wait_for("I Config change detected: " + path()));
    EXPECT_TRUE(log.has("E Failed to open config file: " + path()));
    EXPECT_EQ(answer(1), "copy");
    reload(settings(mouse_entry("1", 7)));
    EXPECT_EQ(answer(1), "cut");
}

TEST_F(config, without_home_it_works_with_no_profiles) {
    unsetenv("HOME");
    EXPECT_EQ(answer(1), "default_action");
    ASSERT_TRUE(log.wait_for("I Watching config file: "));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "E Failed to create config folder: HOME not set",
                               "E Failed to open config file: ", "I Watching config file: "}));
}

TEST_F(config, a_folder_that_cannot_be_made_is_said) {
    std::ofstream(home.path() / "Library") << "in the way";
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_EQ(log.lines()[0].rfind("E Failed to create config folder: ", 0), 0U);
    EXPECT_EQ(log.lines()[1], "E Failed to open config file: ");
}
