#include "common/config/mouse.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using nlohmann::json;

namespace {

mouse_t profile(const std::string& app_configs) {
    return mouse_t::from_json(json::parse(R"({"type":1,"appConfigs":)" + app_configs + "}"));
}

std::string answer(mouse_t& mouse, std::uint32_t input, const std::string& app) {
    return std::string(action_name(mouse.get_action(static_cast<input_value_e>(input), app)));
}

}  // namespace

TEST(mouse, the_application_that_fits_best_answers) {
    struct case_t {
        const char* app_configs;
        const char* app;
        const char* expected;  // for input 3
    };
    const case_t cases[] = {
        // copy 6, cut 7
        {R"({"Default":{"3":[{"action":6}]},"viewer":{"3":[{"action":7}]}})", "Viewer", "cut"},
        {R"({"pho":{"3":[{"action":6}]},"photo":{"3":[{"action":7}]}})", "Photo Agent", "cut"},
        {R"({"pho":{"3":[{"action":6}]},"agent":{"3":[{"action":7}]}})", "Photo Agent", "copy"},
        {R"({"oto":{"3":[{"action":6}]},"toview":{"3":[{"action":7}]}})", "Photo Viewer", "cut"},
        {R"({"A Photo":{"3":[{"action":6}]},"a":{"3":[{"action":7}]}})", "a-PHOTO", "copy"},
        {R"({"photoplus":{"3":[{"action":6}]}})", "Photo", "default_action"},
        {R"({"default":{"3":[{"action":6}]}})", "my default app", "copy"},
        // what the application leaves unbound, "default" binds
        {R"({"mail":{"4":[{"action":7}]},"default":{"3":[{"action":6}]}})", "Mail", "copy"},
        {R"({"mail":{"3":[{"action":0}]},"default":{"3":[{"action":6}]}})", "Mail", "do_nothing"},
        {R"({"mail":{"3":[{"action":23}]},"default":{"3":[{"action":6}]}})", "Mail",
         "default_action"},
        // a name without ASCII letters has an empty normal form, which fits nothing else
        {R"({"写真":{"3":[{"action":7}]},"default":{"3":[{"action":6}]}})", "Mail", "copy"},
        {R"({"mail":{"3":[{"action":7}]},"default":{"3":[{"action":6}]}})", "写真", "copy"},
        // names and inputs that mean the same: the later in byte order wins
        {R"({"mail!":{"3":[{"action":7}]},"Mail":{"3":[{"action":6}]}})", "mail", "cut"},
        {R"({"mail":{"3":[{"action":7}],"03":[{"action":6}]}})", "mail", "cut"},
        {R"({"mail":{" +3x":[{"action":7}]}})", "mail", "cut"},
        // only the first of a list counts; an empty one binds nothing
        {R"({"mail":{"3":[{"action":7},{"action":6}]}})", "mail", "cut"},
        {R"({"mail":{"3":[]}})", "mail", "default_action"},
        {R"([{"3":[{"action":7}]}])", "0", "cut"},  // an array's indices are its keys
        {"null", "mail", "default_action"},
    };
    for (const auto& [app_configs, app, expected] : cases) {
        auto mouse = profile(app_configs);
        EXPECT_EQ(answer(mouse, 3, app), expected) << app_configs << " " << app;
        EXPECT_EQ(answer(mouse, 3, app), expected) << "from the cache: " << app_configs;
    }
}

TEST(mouse, answers_stay_right_from_the_cache_and_when_it_overflows) {
    auto mouse = profile(
        R"({"app1":{"3":[{"action":6}],"-1":[{"action":7}]},"default":{"3":[{"action":8}]}})");
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
    for (const char* app_configs : {R"({"a":{"abc":[]}})", "5", R"({"a":"text"})"}) {
        EXPECT_THROW(profile(app_configs), std::invalid_argument) << app_configs;
    }
    EXPECT_THROW(profile(R"({"a":{"99999999999":[]}})"), std::out_of_range);
}
