#include "common/action.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using nlohmann::json;

namespace {

std::string name_for(const std::string& text) {
    return std::string(action_name(make_action(json::parse(text))));
}

template <typename alternative_t>
alternative_t make(const std::string& text) {
    return std::get<alternative_t>(make_action(json::parse(text)));
}

}  // namespace

TEST(action, codes_of_the_settings_file_name_their_actions) {
    std::istringstream names(
        "do_nothing increase_volume decrease_volume mute_volume increase_brightness "
        "decrease_brightness copy cut paste screenshot minimize_window maximize_window "
        "close_window open_file open_hovered_file go_back redo open_emoji_menu open_new_tab "
        "move_to_left_desktop_tab move_to_right_desktop_tab swap_keyboard_input_language shortcut "
        "default_action wheel_forward wheel_backward wheel_left wheel_right "
        "open_standard_path_program default_action");
    int code = 0;
    for (std::string name; names >> name; ++code) {
        EXPECT_EQ(name_for(R"({"params":{},"action":)" + std::to_string(code) + "}"), name) << code;
    }
    EXPECT_EQ(name_for(R"({"action":1.9})"), "increase_volume");
    EXPECT_EQ(name_for(R"({"action":true})"), "increase_volume");
    EXPECT_EQ(name_for(R"({"action":false})"), "do_nothing");
}

TEST(action, whatever_cannot_be_used_is_the_default_action) {
    for (const char* text :
         {"[]", "\"copy\"", "null", "{}", R"({"action":-1})", R"({"action":1e300})",
          R"({"action":4294967302})", R"({"action":13})", R"({"action":13,"params":[]})",
          R"({"action":22,"params":null})", R"({"action":28,"params":"/bin/ls"})"}) {
        EXPECT_EQ(name_for(text), "default_action") << text;
    }
    for (const char* text : {R"({"action":"6"})", R"({"action":null})", R"({"action":[]})"}) {
        EXPECT_THROW(name_for(text), json::type_error) << text;
    }
    EXPECT_EQ(action_t().index(), 0U);
    EXPECT_EQ(action_name(action_t()), "default_action");
}

TEST(action, payloads_take_what_is_usable_and_skip_the_rest) {
    EXPECT_EQ(make<open_file_t>(R"({"action":13,"params":{"path":"/tmp/ä b"}})").path, "/tmp/ä b");
    EXPECT_EQ(make<open_file_t>(R"({"action":13,"params":{"path":7}})").path, "");
    EXPECT_EQ(make<open_standard_path_program_t>(R"({"action":28,"params":{"path":"M"}})").path,
              "M");
    EXPECT_TRUE(make<shortcut_t>(R"({"action":22,"params":{"combination":{"0":146}}})")
                    .combination.empty());
    const auto shortcut = make<shortcut_t>(
        R"({"action":22,"params":{"combination":[3,"x",4.7,null,true,[6],5,5,1e300,108]}})");
    std::vector<int> numbers;
    for (const auto key : shortcut.combination) {
        numbers.push_back(static_cast<int>(key));
    }
    EXPECT_EQ(numbers, (std::vector<int>{3, 4, 5, 5, 0, 108}));  // 0: no key
}
