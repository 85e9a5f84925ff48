#include "macos/hook_manager_decisions.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "macos/device_mappings.h"

using input = input_value_e;
using model = qlx_device_e;

TEST(hook_manager_decisions, a_model_is_known_by_both_numbers_together) {
    for (const auto& mapping : device_mappings) {
        EXPECT_EQ(model_of(mapping.vendor_id, mapping.product_id), model::valtor_pro);
    }
    EXPECT_EQ(model_of(device_mappings[0].vendor_id, device_mappings[2].product_id),
              model::not_a_device);
    EXPECT_EQ(model_of(0, 0), model::not_a_device);
}

TEST(hook_manager_decisions, key_codes_stand_for_buttons_per_model) {
    const std::map<std::pair<model, std::int64_t>, std::optional<input>> captured{
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
            EXPECT_EQ(input_of_key(one, code),
                      expected == captured.end() ? std::nullopt : expected->second)
                << static_cast<std::uint32_t>(one) << " " << code;
        }
    }
}

// What a wheel of the desktop does not send; a gesture's and a slow wheel's fields.
TEST(hook_manager_decisions, points_go_before_lines_and_one_field_is_enough_to_pass) {
    EXPECT_EQ(input_of_scroll({.line_axis_2 = -1}), input::horizontal_scroll_negative);
    EXPECT_EQ(input_of_scroll({.point_axis_2 = 10, .line_axis_2 = -1}),
              input::horizontal_scroll_positive);
    EXPECT_EQ(input_of_scroll({.point_axis_2 = 10, .line_axis_1 = -1}), std::nullopt);
    EXPECT_EQ(input_of_scroll({.point_axis_2 = 10, .is_continuous = 1}), std::nullopt);
    EXPECT_EQ(input_of_scroll({.point_axis_2 = 10, .phase = 2}), std::nullopt);
}
