#include "common/input/input_manager.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

constexpr input_value_e input(std::uint32_t number) {
    return static_cast<input_value_e>(number);
}
constexpr qlx_device_e device(std::uint32_t number) {
    return static_cast<qlx_device_e>(number);
}

}  // namespace

TEST(input_manager, holds_one_action_for_each_model_and_input_from_1_to_9) {
    const log_capture_t log;
    input_manager_t table;
    for (std::uint32_t model = 0; model < 4; ++model) {  // 3 is not known from the start
        for (std::uint32_t number = 1; number <= 9; ++number) {
            EXPECT_EQ(table.get_action(device(model), input(number)).index(), 0U);
            shortcut_t own;
            own.combination = {input(model), input(number)};
            table.store_action(device(model), input(number), own);
        }
    }
    for (std::uint32_t model = 0; model < 4; ++model) {
        for (std::uint32_t number = 1; number <= 9; ++number) {
            const auto held = table.get_action(device(model), input(number));
            EXPECT_EQ(std::get<shortcut_t>(held).combination,
                      (std::vector<input_value_e>{input(model), input(number)}));
        }
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST(input_manager, refuses_other_inputs_with_the_same_line_for_storing_and_reading) {
    log_capture_t log;
    input_manager_t table;
    for (const std::uint32_t number : {0U, 10U, 106U, 0xFFFFFFFFU}) {
        log.forget();
        table.store_action(qlx_device_e::corvane, input(number), copy_t{});
        EXPECT_EQ(table.get_action(qlx_device_e::corvane, input(number)).index(), 0U);
        EXPECT_EQ(log.count("E Input value " + std::to_string(number) +
                            " is out of range for storing action"),
                  2U);
    }
}

TEST(input_manager, refuses_not_a_device) {
    const log_capture_t log;
    input_manager_t table;
    table.store_action(qlx_device_e::not_a_device, input(3), copy_t{});
    EXPECT_EQ(table.get_action(qlx_device_e::not_a_device, input(3)).index(), 0U);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"E Cannot store action for not_a_device",
                                                     "E Cannot get action for not_a_device"}));
}
