#include "common/config/mouse.h"

#include "support/test.h"

using nlohmann::json;

namespace {

// A profile in which a number in place of an application's entry is the action of input 3.
mouse_t profile(const std::string& app_configs) {
    auto configs = json::parse(app_configs);
    for (auto& entry : configs) {
        if (entry.is_number()) {
            entry = {{"3", {{{"action", entry}}}}};
        }
    }
    return mouse_t::from_json({{"type", 1}, {"appConfigs", configs}});
}

std::string answer(mouse_t& mouse, std::uint32_t input, const std::string& app) {
    return std::string(action_name(mouse.get_action(static_cast<input_value_e>(input), app)));
}

}  // namespace

TEST(mouse, the_application_that_fits_best_answers) {
    // What is configured (6: copy, 7: cut), the application, what its input 3 gives.
    for (const auto& [app_configs, app, expected] : std::vector<std::array<const char*, 3>>{
             {R"({"pho":6,"photo":7})", "Photo Agent", "cut"},
             {R"({"pho":6,"agent":7})", "Photo Agent", "copy"},
             {R"({"oto":6,"age":7,"gen":6})", "Photo Agent", "cut"},
             {R"({"az AZ09":6})", "@A\x10\x19[Z`a{z/0:9", "copy"},
             {R"({"a":7,"a0":6,"a9":6,"aa":6,"az":6})", "A", "cut"},
             {R"({"photoplus":6})", "Photo", "default_action"},
             // "default" is no application, and binds what the application leaves unbound
             {R"({"Default":6,"mail":7})", "Default Mail", "cut"},
             {R"({"Default":6,"mail":{"3":[],"4":[{"action":7}]}})", "Mail", "copy"},
             // a name without ASCII letters has an empty normal form, which only its like fits
             {R"({"Default":6,"写真":7})", "Mail", "copy"},
             {R"({"Default":6,"写真":7})", "地図", "cut"},
             // names and inputs that mean the same: the later in byte order replaces the earlier
             {R"({"mail!":{"4":[{"action":7}]},"Mail":6})", "mail", "default_action"},
             {R"({"mail":{"03":[{"action":6}],"3":[{"action":7}],"4":[]}})", "mail", "cut"},
             {R"({"mail":{" +3x":[{"action":7},{"action":6}]}})", "mail", "cut"},
             {"[7]", "0", "cut"}}) {  // an array's indices are its keys
        auto mouse = profile(app_configs);
        for (const char* source : {"", ", from the cache"}) {
            EXPECT_EQ(answer(mouse, 3, app), expected) << app_configs << " " << app << source;
        }
    }

    auto mouse = profile(R"({"app1":{"3":[{"action":6}],"-1":[{"action":7}]},"default":8})");
    for (int app = 0; app < 5000; ++app) {  // what is remembered overflows
        ASSERT_EQ(answer(mouse, 3, std::to_string(app) + "app"), "paste") << app;
        ASSERT_EQ(answer(mouse, 3, "App 1"), "copy") << app;
        ASSERT_EQ(answer(mouse, 0xFFFFFFFF, "App 1"), "cut") << app;
        ASSERT_EQ(answer(mouse, 3, "App"), "paste") << app;
    }
}

TEST(mouse, unusable_entries_are_named) {
    EXPECT_THROW(profile(R"({"a":{"3":{"action":6}}})"), json::type_error);
    for (const auto& [app_configs, text] : std::vector<std::array<const char*, 2>>{
             {R"({"Mail":{"mid\ndle":[]}})", R"(input key "mid\ndle" of "Mail" is no number)"},
             {R"({"Mail":{"99999999999":[]}})",
              R"(input key "99999999999" of "Mail" is out of range)"},
             {"true", R"("appConfigs" is no object)"},
             {R"({"Ma\"il":"text"})", R"(the entry of "Ma\"il" is no object)"}}) {
        EXPECT_EQ(error_text([&] { profile(app_configs); }), text);
    }
}
