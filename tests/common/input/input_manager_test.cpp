#include "common/input/input_manager.h"

#include "support/log_capture.h"
#include "support/test.h"

TEST(input_manager, holds_one_action_for_each_model_and_input_from_1_to_9) {
    const log_capture_t log;
    input_manager_t table;
    for (const int reads : {0, 1, 2}) {
        for (std::uint32_t slot = 0; slot < 4 * 9; ++slot) {  // model 3 is not known from the start
            const auto device = static_cast<qlx_device_e>(slot / 9);
            const auto input = static_cast<input_value_e>(1 + slot % 9);
            const open_file_t own(nlohmann::json{{"path", std::to_string(slot)}});
            const auto held = table.get_action(device, input);
            ASSERT_EQ(std::holds_alternative<open_file_t>(held), reads > 0) << slot;
            if (reads == 0) {
                table.store_action(device, input, own);
            } else {
                EXPECT_EQ(std::get<open_file_t>(held).path, own.path) << "read " << reads;
            }
        }
    }
    for (const auto& [model, number] : {std::pair{2U, 0U}, {2U, 10U}, {0xFFFFFFFF, 3U}}) {
        const auto device = static_cast<qlx_device_e>(model);
        table.store_action(device, static_cast<input_value_e>(number), copy_t{});
        EXPECT_EQ(table.get_action(device, static_cast<input_value_e>(number)).index(), 0U);
    }
    const std::string line = " is out of range for storing action";
    EXPECT_EQ(log.lines(), (lines_t{"E Input value 0" + line, "E Input value 0" + line,
                                    "E Input value 10" + line, "E Input value 10" + line,
                                    "E Cannot store action for not_a_device",
                                    "E Cannot get action for not_a_device"}));
}
