#include "common/config/config.h"

#include <sstream>

#include "support/log_capture.h"
#include "support/test.h"

using namespace std::chrono_literals;

namespace {

// The settings of mice, each a type and the code bound to the inputs 0 and x1_button (4)
// everywhere; an entry with "-" stands there as it is.
std::string settings(const std::string& mice) {
    std::istringstream words(mice);
    std::string entries;
    for (std::string entry, code; words >> entry >> code;) {
        const auto list = R"([{"action":)" + code + "}]";
        const auto bound = R"({"appConfigs":{"default":{"0":)" + list + R"(,"4":)" + list + "}}";
        entries += (entries.empty() ? "" : ",") +
                   (code == "-" ? entry : bound + R"(,"type":)" + entry + "}");
    }
    return R"({"appState":[)" + entries + "]}";
}

std::string answer(std::uint32_t device, std::uint32_t input = 4,
                   const std::string& app = "Some App") {
    return std::string(action_name(config_t::instance().retrieve_action(
        static_cast<qlx_device_e>(device), static_cast<input_value_e>(input), app)));
}

struct config : testing::Test {
    temporary_home_t home;
    std::string path = home.settings_file().string();
    log_capture_t log;
    const std::string handled = "I Config change detected: " + path;
};

}  // namespace

TEST_F(config, loads_the_file_at_the_first_use_and_merges_what_comes_later) {
    // Numbers are truncated, and wrapped once from below; the rest must not be some other mouse.
    const auto text = settings(
        "1 6 2 6 1.9 8 -0.9 9 4294967294.9 9 -2147483648 9 4294967296 10 4294967297.0 10 "
        "18446744069414584321 10 -2147483649 10 -2147483649.0 10 -4294967294 10 1e300 10");
    home.write_settings(text);
    EXPECT_EQ(answer(1) + answer(2), "pastecopy");
    for (const std::uint32_t model : {0U, 0x80000000, 0xFFFFFFFE}) {
        EXPECT_EQ(answer(model), "screenshot") << model;
    }
    for (const auto& none : {answer(0xFFFFFFFF), answer(0x7FFFFFFF), answer(1, 0), answer(1, 5)}) {
        EXPECT_EQ(none, "default_action");
    }
    ASSERT_TRUE(log.wait_for("I Watching config file: " + path));
    EXPECT_EQ(log.lines(), (lines_t{"I Using user directory: " + home.user_data().string(),
                                    "I config loaded " + nlohmann::json::parse(text).dump(),
                                    "I mice loaded", "I Watching config file: " + path}));

    // Behind the first look, and 80 ms before the next: less than the file has to settle.
    std::this_thread::sleep_for(420ms);
    auto fastest = std::chrono::steady_clock::duration::max();
    for (const auto& [replaced_by, line, then] : std::vector<std::array<std::string, 3>>{
             {R"({"appState":[],"a":"é"})", R"(I config loaded {"a":"é","appState":[]})",
              "pastecopy"},
             {"", "E Failed to open config file: " + path, "pastecopy"},
             {R"({"appState":{}})", "E appState not in config or not an array", "pastecopy"},
             {"[1e400]", "E Config file JSON is invalid: [json.exception.out_of_range.406] ",
              "pastecopy"},
             // a model that is not mentioned stays
             {settings("7 - {} - 2 7"), "E type not in config", "pastecut"},
             // of an entry that cannot be used: those before it hold, those after are not reached
             {settings(R"(1 6 {"type":true} - 2 8)"),
              "E Config callback threw: [json.exception.type_error.302] ", "copycut"}}) {
        log.forget();
        const auto begin = std::chrono::steady_clock::now();
        replaced_by.empty() ? void(std::filesystem::remove(path))
                            : home.write_settings(replaced_by);
        ASSERT_TRUE(log.wait_for(handled)) << line;
        fastest = std::min(fastest, std::chrono::steady_clock::now() - begin);
        EXPECT_GT(log.count_beginning(line), 0U) << line;
        EXPECT_EQ(answer(1) + answer(2), then) << line;
    }
    // The file is looked at every 500 ms and left alone for 150 ms after a change.
    EXPECT_TRUE(fastest >= 150ms && fastest < 1s) << fastest.count();
}

TEST_F(config, events_do_not_wait_for_a_load_and_get_whole_answers) {
    std::atomic<bool> may_load{false};
    const auto text = settings("1 6");
    log.hold("I config loaded " + text, [&] { return may_load.load(); });
    EXPECT_EQ(answer(1), "default_action");
    ASSERT_TRUE(log.wait_for("I Watching config file: " + path));
    home.write_settings(text);
    ASSERT_TRUE(log.wait_for("I config loaded " + text));
    EXPECT_EQ(answer(1), "default_action");  // with the lock held it would come after the load
    may_load = true;
    ASSERT_TRUE(log.wait_for(handled));

    // A long load, which is still under way when the answer changes and when the process ends.
    std::string mice;
    for (int type = 1; type < 10'000; ++type) {
        mice += std::to_string(type) + " 7 ";
    }
    home.write_settings(settings(mice));
    std::set<std::string> answers;
    EXPECT_TRUE(wait_until([&] {
        for (int app = 0; app < 100; ++app) {
            answers.insert(answer(1, 4, std::to_string(app)));
        }
        return answers.size() > 1;
    }));
    EXPECT_EQ(answers, (std::set<std::string>{"copy", "cut"}));
}

TEST_F(config, a_folder_that_cannot_be_made_is_said) {
    std::ofstream(home.path() / "Library") << "in the way";
    EXPECT_EQ(answer(1), "default_action");
    EXPECT_EQ(log.count_beginning("E Failed to create config folder: "), 1U);
    EXPECT_TRUE(log.has("E Failed to open config file: "));
}
