#include "common/action.h"

#include <gtest/gtest.h>

using nlohmann::json;

namespace {

// The action of the code, with the rest of its object.
action_t make(const std::string& code, const std::string& rest = R"(,"params":{})") {
    return make_action(json::parse(R"({"action":)" + code + rest + "}"));
}

}  // namespace

TEST(action, alternatives_have_their_names_and_codes) {
    std::string names;
    [&]<std::size_t... indices>(std::index_sequence<indices...>) {
        ((names.append(action_name(action_t(std::in_place_index<indices>))) += ' '), ...);
    }
    (std::make_index_sequence<std::variant_size_v<action_t>>());
    EXPECT_EQ(names,
              "default_action do_nothing increase_volume decrease_volume mute_volume "
              "increase_brightness decrease_brightness copy cut paste screenshot minimize_window "
              "maximize_window close_window close_program open_file open_hovered_file go_back redo "
              "open_emoji_menu open_new_tab move_to_left_desktop_tab move_to_right_desktop_tab "
              "swap_keyboard_input_language shortcut wheel_forward wheel_backward wheel_left "
              "wheel_right double_click open_standard_path_program ");
    std::vector<std::size_t> by_code;
    for (int code = 0; code < 30; ++code) {
        by_code.push_back(make(std::to_string(code)).index());
    }
    // Without a code of close_program and double_click, and without an action of the code 23.
    EXPECT_EQ(by_code,
              (std::vector<std::size_t>{1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 15, 16,
                                        17, 18, 19, 20, 21, 22, 23, 24, 0, 25, 26, 27, 28, 30, 0}));
    EXPECT_EQ(make("1.9").index(), 2U);
    EXPECT_EQ(make("true").index(), 2U);
    EXPECT_EQ(make("false").index(), 1U);
}

TEST(action, whatever_cannot_be_used_is_the_default_action) {
    for (const char* text : {"[]", "\"copy\"", "null", "{}"}) {
        EXPECT_EQ(make_action(json::parse(text)).index(), 0U) << text;
    }
    for (const char* code : {"-1", "1e300", "4294967302", "13", R"(13,"params":[])",
                             R"(22,"params":null)", R"(28,"params":"/bin/ls")"}) {
        EXPECT_EQ(make(code, "").index(), 0U) << code;
    }
    for (const char* code : {"\"6\"", "null", "[]"}) {
        EXPECT_THROW(make(code), json::type_error) << code;
    }
}

TEST(action, payloads_take_what_is_usable_and_skip_the_rest) {
    const std::string path = R"(,"params":{"path":)";
    EXPECT_EQ(std::get<open_file_t>(make("13", path + R"("/tmp/ä b"})")).path, "/tmp/ä b");
    EXPECT_EQ(std::get<open_file_t>(make("13", path + "7}")).path, "");
    EXPECT_EQ(std::get<open_standard_path_program_t>(make("28", path + R"("M"})")).path, "M");
    const auto keys = [](const std::string& combination) {
        std::vector<int> numbers;
        const auto action = make("22", R"(,"params":{"combination":)" + combination + "}");
        for (const auto key : std::get<shortcut_t>(action).combination) {
            numbers.push_back(static_cast<int>(key));
        }
        return numbers;
    };
    EXPECT_EQ(keys(R"({"0":146})"), std::vector<int>{});
    EXPECT_EQ(keys(R"([3,"x",4.7,null,true,[6],5,5,1e300,108])"),
              (std::vector<int>{3, 4, 5, 5, 0, 108}));  // 0: no key
}
