#include "common/input/input_manager.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

constexpr input_value_e input(std::uint32_t number) {
    return static_cast<input_value_e>(number);
}

}  // namespace

TEST(input_manager, holds_one_action_for_each_model_and_input_from_1_to_9) {
    const log_capture_t log;
    input_manager_t table;
    for (const bool stored : {false, true}) {
        for (std::uint32_t slot = 0; slot < 4 * 9; ++slot) {  // model 3 is not known from the start
            const auto device = static_cast<qlx_device_e>(slot / 9);
            const auto held = table.get_action(device, input(1 + slot % 9));
            if (stored) {
                EXPECT_EQ(std::get<shortcut_t>(held).combination, std::vector{input(slot)});
                continue;
            }
            EXPECT_EQ(held.index(), 0U);
            shortcut_t own;
            own.combination = {input(slot)};
            table.store_action(device, input(1 + slot % 9), own);
        }
    }
    EXPECT_TRUE(log.lines().empty());

    // Other inputs and models are refused.
    for (const std::uint32_t number : {0U, 10U, 106U, 0xFFFFFFFFU}) {
        table.store_action(qlx_device_e::corvane, input(number), copy_t{});
        EXPECT_EQ(table.get_action(qlx_device_e::corvane, input(number)).index(), 0U);
        EXPECT_EQ(log.count("E Input value " + std::to_string(number) +
                            " is out of range for storing action"),
                  2U);
    }
    table.store_action(qlx_device_e::not_a_device, input(3), copy_t{});
    EXPECT_EQ(table.get_action(qlx_device_e::not_a_device, input(3)).index(), 0U);
    EXPECT_TRUE(log.has("E Cannot store action for not_a_device"));
    EXPECT_TRUE(log.has("E Cannot get action for not_a_device"));
}
