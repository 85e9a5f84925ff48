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
        // copy 6, cut 7, paste 8
        {R"({"Default":{"3":[{"action":6}]},"viewer":{"3":[{"action":7}]}})", "Photo Viewer",
         "cut"},
        {R"({"photo":{"3":[{"action":6}]},"photoviewer":{"3":[{"action":7}]}})",
         "Photo Viewer Agent", "cut"},
        {R"({"photo":{"3":[{"action":6}]},"viewer":{"3":[{"action":7}]}})", "Photo Viewer", "copy"},
        {R"({"oto":{"3":[{"action":6}]},"toview":{"3":[{"action":7}]}})", "Photo Viewer", "cut"},
        {R"({"Photo Viewer":{"3":[{"action":6}]},"p":{"3":[{"action":7}]}})", "photo-VIEWER",
         "copy"},
        {R"({"photoviewerplus":{"3":[{"action":6}]}})", "Photo Viewer", "default_action"},
        {R"({"default":{"3":[{"action":6}]}})", "anything", "copy"},
        {R"({"default":{"3":[{"action":6}]}})", "my default app", "copy"},
        {R"({"Mail":{"3":[{"action":6}]}})", "Calendar", "default_action"},
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
        {R"({"mail":{"3":null}})", "mail", "default_action"},
        {R"({"mail":{"3":{}}})", "mail", "default_action"},
        {R"([{"3":[{"action":7}]}])", "0", "cut"},  // an array's indices are its keys
        {"null", "mail", "default_action"},
        {R"({"mail":null})", "mail", "default_action"},
    };
    for (const auto& [app_configs, app, expected] : cases) {
        auto mouse = profile(app_configs);
        EXPECT_EQ(answer(mouse, 3, app), expected) << app_configs << " " << app;
        EXPECT_EQ(answer(mouse, 3, app), expected) << "from the cache: " << app_configs;
    }
}

TEST(mouse, answers_differ_by_input_and_application_also_from_the_cache) {
    auto mouse = profile(
        R"({"mail":{"3":[{"action":6}],"-1":[{"action":7}]},"default":{"3":[{"action":8}]}})");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(answer(mouse, 3, "Mail"), "copy");
        EXPECT_EQ(answer(mouse, 0xFFFFFFFF, "Mail"), "cut");
        EXPECT_EQ(answer(mouse, 3, "Calendar"), "paste");
        EXPECT_EQ(answer(mouse, 4, "Mail"), "default_action");
    }
    mouse = profile(R"({"mail":{"3":[{"action":9}]}})");  // takes its empty cache along
    EXPECT_EQ(answer(mouse, 3, "Mail"), "screenshot");
    EXPECT_EQ(answer(mouse, 3, "Calendar"), "default_action");
}

TEST(mouse, answers_stay_right_when_the_cache_overflows) {
    auto mouse = profile(R"({"app1":{"3":[{"action":6}]},"default":{"3":[{"action":7}]}})");
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 5000; ++i) {
            const auto app = std::to_string(i) + "app";
            ASSERT_EQ(answer(mouse, 3, app), "cut") << app;
        }
        ASSERT_EQ(answer(mouse, 3, "App 1"), "copy");
    }
}

TEST(mouse, unusable_entries_raise_the_librarys_errors) {
    const auto error_of = [](const std::string& entry) -> std::string {
        try {
            mouse_t::from_json(json::parse(entry));
        } catch (const json::exception& error) {
            return error.what();
        } catch (const std::invalid_argument&) {
            return "invalid_argument";
        } catch (const std::out_of_range&) {
            return "out_of_range";
        }
        return "none";
    };
    EXPECT_EQ(error_of(R"({"type":1})"),
              "[json.exception.out_of_range.403] key 'appConfigs' not found");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"3":[{"action":"6"}]}}})"),
              "[json.exception.type_error.302] type must be number, but is string");
    const std::string no_list =
        "[json.exception.type_error.305] cannot use operator[] with a numeric argument with ";
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"3":{"action":6}}}})"), no_list + "object");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"3":"copy"}}})"), no_list + "string");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"3":6}}})"), no_list + "number");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"3":false}}})"), no_list + "boolean");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"abc":[]}}})"), "invalid_argument");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":{"99999999999":[]}}})"), "out_of_range");
    EXPECT_EQ(error_of(R"({"appConfigs":5})"), "invalid_argument");
    EXPECT_EQ(error_of(R"({"appConfigs":{"a":"text"}})"), "invalid_argument");
}
