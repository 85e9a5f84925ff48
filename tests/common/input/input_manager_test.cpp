#include "common/input/input_manager.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

TEST(input_manager, holds_one_action_for_each_model_and_input_from_1_to_9) {
    log_capture_t log;
    input_manager_t table;
    for (const bool stored : {false, true}) {
        for (std::uint32_t slot = 0; slot < 4 * 9; ++slot) {  // model 3 is not known from the start
            const auto device = static_cast<qlx_device_e>(slot / 9);
            const auto input = static_cast<input_value_e>(1 + slot % 9);
            shortcut_t own;
            own.combination.resize(slot);
            const auto held = table.get_action(device, input);
            ASSERT_EQ(std::holds_alternative<shortcut_t>(held), stored) << slot;
            EXPECT_TRUE(!stored || std::get<shortcut_t>(held).combination.size() == slot);
            table.store_action(device, input, own);
        }
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
    for (const std::uint32_t input : {0U, 10U, 106U, 0xFFFFFFFFU, 3U}) {
        log.forget();
        const auto device = input == 3 ? qlx_device_e::not_a_device : qlx_device_e::corvane;
        table.store_action(device, static_cast<input_value_e>(input), copy_t{});
        EXPECT_EQ(table.get_action(device, static_cast<input_value_e>(input)).index(), 0U);
        const auto line =
            "E Input value " + std::to_string(input) + " is out of range for storing action";
        EXPECT_EQ(log.lines(),
                  input == 3 ? (std::vector<std::string>{"E Cannot store action for not_a_device",
                                                         "E Cannot get action for not_a_device"})
                             : std::vector<std::string>(2, line));
    }
}
