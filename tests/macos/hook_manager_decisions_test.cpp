#include "macos/hook_manager_decisions.h"

#include "macos/device_mappings.h"
#include "support/test.h"

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
    constexpr auto x1 = input::x1_button;
    constexpr auto x2 = input::x2_button;
    std::map<model, std::map<std::int64_t, input>> captured{
        {model::valtor_pro, {{33, x1}, {41, x1}, {123, x1}, {30, x2}, {39, x2}, {124, x2}}},
        {model::corvane, {{123, x1}, {124, x2}, {3, input::corvane_extra_key}}}};
    for (const model one : {model::model_0, model::valtor_pro, model::corvane,
                            static_cast<model>(7), model::not_a_device}) {
        const auto& keys = captured[one];
        EXPECT_EQ(sends_keys_for_buttons(one), !keys.empty());
        for (std::int64_t code = -1; code < 200; ++code) {
            EXPECT_EQ(input_of_key(one, code),
                      keys.contains(code) ? std::optional(keys.at(code)) : std::nullopt)
                << static_cast<std::uint32_t>(one) << " " << code;
        }
    }
}
