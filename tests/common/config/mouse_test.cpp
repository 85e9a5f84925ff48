#include "common/config/mouse.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

using nlohmann::json;

namespace {

// A profile in which a number in place of an application's entry is the action of input 3.
mouse_t profile(const std::string& app_configs) {
    auto configs = json::parse(app_configs);
    for (auto& entry : configs) {
        if (entry.is_number()) {
            entry = {{"3", json::array({{{"action", entry}}})}};
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
             {R"({"oto":6,"toview":7})", "Photo Viewer", "cut"},
             {R"({"oto":6,"age":7,"gen":6})", "Photo Agent", "cut"},
             {R"({"A Photo":6,"a":7})", "a-PHOTO", "copy"},
             {R"({"az AZ09":6})", "@A[Z`a{z/0:9", "copy"},
             {R"({"photoplus":6})", "Photo", "default_action"},
             // "default" is no application, and binds what the application leaves unbound
             {R"({"Default":6,"mail":7})", "Default Mail", "cut"},
             {R"({"Default":6,"mail":{"4":[{"action":7}]}})", "Mail", "copy"},
             {R"({"Default":6,"mail":23})", "Mail", "default_action"},
             // a name without ASCII letters has an empty normal form, which only its like fits
             {R"({"Default":6,"写真":7})", "Mail", "copy"},
             {R"({"Default":6,"写真":7})", "地図", "cut"},
             // names and inputs that mean the same: the later in byte order replaces the earlier
             {R"({"mail!":{"4":[{"action":7}]},"Mail":6})", "mail", "default_action"},
             {R"({"mail":{"3":[{"action":7}],"03":[{"action":6}]}})", "mail", "cut"},
             {R"({"mail":{" +3x":[{"action":7}]}})", "mail", "cut"},
             // only the first of a list counts; an empty one binds nothing
             {R"({"mail":{"3":[{"action":7},{"action":6}]}})", "mail", "cut"},
             {R"({"mail":{"3":[]}})", "mail", "default_action"},
             {"[7]", "0", "cut"}}) {  // an array's indices are its keys
        auto mouse = profile(app_configs);
        for (const char* source : {"", ", from the cache"}) {
            EXPECT_EQ(answer(mouse, 3, app), expected) << app_configs << " " << app << source;
        }
    }
}

TEST(mouse, answers_stay_right_from_the_cache_and_when_it_overflows) {
    auto mouse = profile(R"({"app1":{"3":[{"action":6}],"-1":[{"action":7}]},"default":8})");
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(answer(mouse, 3, "App 1"), "copy");
        ASSERT_EQ(answer(mouse, 0xFFFFFFFF, "App 1"), "cut");
        ASSERT_EQ(answer(mouse, 4, "App 1"), "default_action");
        for (int app = 0; app < 5000; ++app) {
            ASSERT_EQ(answer(mouse, 3, std::to_string(app) + "app"), "paste") << app;
        }
    }
}

TEST(mouse, unusable_entries_raise_the_librarys_errors) {
    EXPECT_THROW(profile(R"({"a":{"3":{"action":6}}})"), json::type_error);
    for (const char* app_configs : {R"({"a":{"abc":[]}})", "true", R"({"a":"text"})"}) {
        EXPECT_THROW(profile(app_configs), std::invalid_argument) << app_configs;
    }
    EXPECT_THROW(profile(R"({"a":{"99999999999":[]}})"), std::out_of_range);
}
