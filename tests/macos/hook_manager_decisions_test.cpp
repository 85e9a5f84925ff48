#include "macos/hook_manager_decisions.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <utility>

#include "macos/device_mappings.h"

using input = input_value_e;
using model = qlx_device_e;

TEST(hook_manager_decisions, a_model_is_known_by_both_numbers_together) {
    std::set<std::uint32_t> vendors;
    std::set<std::uint32_t> products;
    for (const auto& mapping : device_mappings) {
        EXPECT_EQ(model_of(mapping.vendor_id, mapping.product_id), model::valtor_pro);
        vendors.insert(mapping.vendor_id);
        products.insert(mapping.product_id);
    }
    EXPECT_EQ(device_mappings[0].vendor_id, device_mappings[1].vendor_id);
    EXPECT_EQ(device_mappings[3].vendor_id, device_mappings[4].vendor_id);
    EXPECT_EQ(vendors.size(), 3U);
    EXPECT_EQ(device_mappings[2].product_id, device_mappings[4].product_id);
    EXPECT_EQ(products.size(), 4U);

    EXPECT_EQ(model_of(device_mappings[0].vendor_id, device_mappings[2].product_id),
              model::not_a_device);
    EXPECT_EQ(model_of(device_mappings[2].vendor_id, device_mappings[3].product_id),
              model::not_a_device);
    EXPECT_EQ(model_of(0, 0), model::not_a_device);
}

TEST(hook_manager_decisions, only_middle_and_side_buttons_are_captured) {
    const std::map<std::int64_t, input> captured{
        {2, input::middle_button}, {3, input::x1_button}, {4, input::x2_button}};
    for (std::int64_t button = -1; button <= 32; ++button) {
        const auto expected = captured.find(button);
        const auto found = input_of_button(button);
        ASSERT_EQ(found.has_value(), expected != captured.end()) << button;
        if (found) {
            EXPECT_EQ(*found, expected->second) << button;
        }
    }
}

TEST(hook_manager_decisions, only_a_lone_horizontal_step_of_a_mouse_is_captured) {
    struct case_t {
        const char* what = "";
        scroll_t scroll;
        std::optional<input> expected;
    };
    const scroll_t right{.point_axis_2 = 10, .line_axis_2 = 1};
    const auto with = [&](std::int64_t scroll_t::*field, std::int64_t value) {
        scroll_t scroll = right;
        scroll.*field = value;
        return scroll;
    };
    const std::array cases{
        case_t{"right", right, input::horizontal_scroll_positive},
        case_t{"left", {.point_axis_2 = -10, .line_axis_2 = -1}, input::horizontal_scroll_negative},
        case_t{"lines only", {.line_axis_2 = 1}, input::horizontal_scroll_positive},
        case_t{"lines only, left", {.line_axis_2 = -1}, input::horizontal_scroll_negative},
        case_t{"points win", with(&scroll_t::line_axis_2, -1), input::horizontal_scroll_positive},
        case_t{"no movement", {}, std::nullopt},
        case_t{"vertical", {.point_axis_1 = 10, .line_axis_1 = 1}, std::nullopt},
        case_t{"both, points", with(&scroll_t::point_axis_1, 1), std::nullopt},
        case_t{"both, lines", with(&scroll_t::line_axis_1, -1), std::nullopt},
        case_t{"trackpad", with(&scroll_t::is_continuous, 1), std::nullopt},
        case_t{"gesture", with(&scroll_t::phase, 2), std::nullopt},
        case_t{"inertia", with(&scroll_t::momentum_phase, 3), std::nullopt},
    };
    for (const case_t& one : cases) {
        EXPECT_EQ(input_of_scroll(one.scroll), one.expected) << one.what;
    }
}

TEST(hook_manager_decisions, key_codes_stand_for_buttons_per_model) {
    const std::map<std::pair<model, std::int64_t>, input> captured{
        {{model::valtor_pro, 33}, input::x1_button},
        {{model::valtor_pro, 41}, input::x1_button},
        {{model::valtor_pro, 123}, input::x1_button},
        {{model::valtor_pro, 30}, input::x2_button},
        {{model::valtor_pro, 39}, input::x2_button},
        {{model::valtor_pro, 124}, input::x2_button},
        {{model::corvane, 123}, input::x1_button},
        {{model::corvane, 124}, input::x2_button},
        {{model::corvane, 3}, input::corvane_extra_key},
    };
    for (const model one : {model::model_0, model::valtor_pro, model::corvane,
                            static_cast<model>(7), model::not_a_device}) {
        for (std::int64_t code = -1; code < 200; ++code) {
            const auto expected = captured.find({one, code});
            const auto found = input_of_key(one, code);
            ASSERT_EQ(found.has_value(), expected != captured.end())
                << static_cast<std::uint32_t>(one) << " " << code;
            if (found) {
                EXPECT_EQ(*found, expected->second) << code;
            }
        }
    }
}

TEST(hook_manager_decisions, a_process_name_ends_before_its_first_app_suffix) {
    for (const auto& [name, expected] : std::map<std::string, std::string>{
             {"Photo Viewer", "Photo Viewer"},
             {"Mail.app", "Mail"},
             {"Mail.app (Helper).app", "Mail"},
             {"Notes.application", "Notes"},
             {".app", ""},
             {"app", "app"},
             {"", ""},
         }) {
        EXPECT_EQ(cut_process_name(name), expected) << name;
    }
}
