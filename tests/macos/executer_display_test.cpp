#include "macos/executer_display.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "control/calls.h"
#include "control/displays.h"
#include "control/objects.h"
#include "support/fail_call.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;
using simulator::display_t;

// Brightness actions leave nothing owned and say nothing, whatever becomes of them.
class executer_display_test : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(log.lines(), lines_t{});
    }

    static display_t bright(const std::string& name, std::uint32_t vendor, std::uint32_t model,
                            std::optional<float> brightness) {
        auto display = simulator::usual_display(name, vendor, model);
        display.service->brightness = brightness;
        return display;
    }

    static float brightness(CGDirectDisplayID display) {
        return simulator::display(display)->service->brightness.value_or(-1.0F);
    }

    log_capture_t log;
};

TEST_F(executer_display_test, the_main_display_is_stepped_within_its_limits) {
    simulator::connect_display(bright("beside", 0x7FFFFFF0, 1, 0.2F));
    for (const auto& [before, step, after] :
         {std::tuple{0.5F, 0.1F, 0.6F}, {0.97F, 0.1F, 1.0F}, {0.03F, -0.1F, 0.0F}}) {
        // The numbers use all of their 32 bits.
        const auto main = simulator::connect_display(bright("main", 0xFFFFFFF0, 1U << 31, before));
        simulator::make_main_display(main);
        step_main_display_brightness(step);
        const auto writes = simulator::brightness_writes();
        ASSERT_FALSE(writes.empty());
        EXPECT_EQ(writes.back().display, main);
        EXPECT_FLOAT_EQ(writes.back().value, after);
        simulator::disconnect_display(main);
    }
}

TEST_F(executer_display_test, a_display_that_cannot_be_controlled_stays_as_it_is) {
    simulator::connect_display(bright("beside", 10, 1, 0.5F));
    auto half_identified = bright("half identified", 10, 2, 0.5F);
    half_identified.service->product.reset();
    auto otherwise_identified = bright("otherwise identified", 10, 2, 0.5F);
    otherwise_identified.service->vendor = 11;
    auto fixed = bright("fixed", 10, 2, 0.5F);
    fixed.service->brightness_writable = false;
    const display_t cases[] = {{"no service", 10, 2, {}},
                               half_identified,
                               otherwise_identified,
                               fixed,
                               bright("unreadable", 10, 2, std::nullopt)};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const auto main = simulator::connect_display(each);
        simulator::make_main_display(main);
        step_main_display_brightness(+0.1F);
        for (const auto& write : simulator::brightness_writes()) {
            EXPECT_FALSE(write.accepted);
        }
        simulator::disconnect_display(main);
    }
}

TEST_F(executer_display_test, of_two_alike_displays_the_first_service_is_taken) {
    const auto first = simulator::connect_display(bright("left", 10, 1, 0.2F));
    const auto second = simulator::connect_display(bright("right", 10, 1, 0.5F));
    simulator::make_main_display(second);
    step_main_display_brightness(+0.1F);
    EXPECT_FLOAT_EQ(brightness(first), 0.3F);
    EXPECT_EQ(brightness(second), 0.5F);
}

TEST_F(executer_display_test, the_write_goes_to_the_display_that_is_main_by_then) {
    const auto first = simulator::connect_display(bright("first", 10, 1, 0.2F));
    const auto second = simulator::connect_display(bright("second", 10, 2, 0.8F));
    simulator::after_next("IODisplayGetFloatParameter",
                          [=] { simulator::make_main_display(second); });
    step_main_display_brightness(+0.1F);
    EXPECT_EQ(brightness(first), 0.2F);
    EXPECT_FLOAT_EQ(brightness(second), 0.3F);

    simulator::after_next("IODisplayGetFloatParameter", [=] {
        simulator::disconnect_display(second);
        simulator::disconnect_display(first);
    });
    step_main_display_brightness(+0.1F);
    step_main_display_brightness(+0.1F);
    EXPECT_EQ(simulator::brightness_writes().size(), 1U);
}

TEST_F(executer_display_test, a_call_that_fails_costs_one_action) {
    simulator::connect_display(bright("main", 10, 1, 0.5F));
    const struct {
        std::string call;
        int times;  // an action makes it
    } cases[] = {
        {"CGMainDisplayID", 2},
        {"IOServiceMatching", 2},
        {"IOServiceGetMatchingServices", 2},
        {"CGDisplayVendorNumber", 2},
        {"CGDisplayModelNumber", 2},
        {"IOIteratorNext", 2},
        {"IORegistryEntryCreateCFProperty", 4},
        {"CFNumberGetValue", 1},  // it is made more often; the first call stands for all
        {"IODisplayGetFloatParameter", 1},
        {"IODisplaySetFloatParameter", 1},
    };
    std::ptrdiff_t accepted = 0;
    const auto count_accepted = [] {
        const auto writes = simulator::brightness_writes();
        return std::count_if(writes.begin(), writes.end(), [](auto& one) { return one.accepted; });
    };
    for (const auto& [call, times] : cases) {
        for (int which = 1; which <= times; ++which) {
            SCOPED_TRACE(call + " " + std::to_string(which));
            fail_call(call, which);
            step_main_display_brightness(+0.1F);
            EXPECT_EQ(count_accepted(), accepted);
            EXPECT_EQ(simulator::objects_alive(), lines_t{});
            step_main_display_brightness(+0.1F);
            EXPECT_EQ(count_accepted(), ++accepted);
        }
    }
}

}  // namespace
