#include "common/action.h"

#include "support/action_text.h"
#include "support/test.h"

// examples/scenarios/every_action.json has every code and its name; these two have no code.
TEST(action, takes_what_is_usable_and_is_the_default_action_otherwise) {
    EXPECT_EQ(action_name(close_program_t{}), "close_program");
    EXPECT_EQ(action_name(double_click_t{}), "double_click");
    const auto made_of = [](const auto& object) {
        return text_of(make_action(nlohmann::json::parse(object)));
    };
    for (const auto& [action, objects] : std::map<std::string, std::vector<std::string>>{
             {"default_action",
              {"[]", "\"copy\"", "null", "{}", "-1", "1e300", "4294967302", "23", "29", "13",
               R"(13,"params":[])", R"(22,"params":null)", R"(28,"params":"/bin/ls")"}},
             {"increase_volume", {"1.9", "true"}},
             {"do_nothing", {"-0.9", "false"}},
             {"open_file ", {R"(13,"params":{"path":7})"}},
             {"open_file /tmp/ä b", {R"(13,"params":{"path":"/tmp/ä b"})"}},
             {"open_standard_path_program M", {R"(28,"params":{"path":"M"})"}},
             {"shortcut []", {R"(22,"params":{"combination":{"0":146}})"}},
             {"shortcut [3,4,5,5,0,108]",  // 0: no key
              {R"(22,"params":{"combination":[3,"x",4.7,null,true,[6],5,5,1e300,108]})"}}}) {
        for (const auto& object : objects) {
            const bool whole = object.find_first_of("[\"n{") == 0;
            EXPECT_EQ(made_of(whole ? object : R"({"action":)" + object + "}"), action) << object;
        }
    }
    for (const char* object : {R"({"action":"6"})", R"({"action":null})", R"({"action":[]})"}) {
        EXPECT_THROW(made_of(object), nlohmann::json::type_error) << object;
    }
}
