#include "macos/executer_display.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
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

TEST_F(executer_display_test, the_main_display_is_found_by_its_numbers_and_stepped_in_its_limits) {
    simulator::connect_display(bright("beside", 0x7FFFFFF0, 1, 0.2F));
    constexpr std::uint32_t vendor = 0xFFFFFFF0;  // the numbers use all of their 32 bits
    constexpr std::uint32_t model = 1U << 31;
    using numbers_t = simulator::display_numbers_t;
    const struct {
        const char* what;
        numbers_t entry, below;
        float before, step, after;
    } cases[] = {
        {"below", {}, {vendor, model}, 0.5F, 0.1F, 0.6F},
        {"on the entry", {vendor, model}, {}, 0.97F, 0.1F, 1.0F},
        {"one of each", {{}, model}, {vendor, {}}, 0.03F, -0.1F, 0.0F},
        {"the entry's own go first", {vendor, model}, {1, 2}, 0.5F, -0.1F, 0.4F},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        auto display = bright("main", vendor, model, each.before);
        display.service->entry = each.entry;
        display.service->below = each.below;
        const auto main = simulator::connect_display(display);
        simulator::make_main_display(main);
        step_main_display_brightness(each.step);
        const auto writes = simulator::brightness_writes();
        ASSERT_FALSE(writes.empty());
        EXPECT_EQ(writes.back().display, main);
        EXPECT_FLOAT_EQ(writes.back().value, each.after);
        simulator::disconnect_display(main);
    }
}

TEST_F(executer_display_test, a_display_that_cannot_be_controlled_stays_as_it_is) {
    simulator::connect_display(bright("beside", 10, 1, 0.5F));
    const auto changed = [](const char* name, auto change) {
        auto display = bright(name, 10, 2, 0.5F);
        change(*display.service);
        return display;
    };
    const display_t cases[] = {
        {"no entry", 10, 2, {}},
        changed("half identified", [](auto& service) { service.below.product.reset(); }),
        changed("otherwise identified", [](auto& service) { service.entry.vendor = 11; }),
        changed("fixed", [](auto& service) { service.brightness_writable = false; }),
        changed("not ready", [](auto& service) { service.ready = false; }),
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
    const auto main = simulator::connect_display(bright("main", 10, 1, 0.5F));
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
        {"IORegistryEntrySearchCFProperty", 4},
        {"CFNumberGetValue", 1},  // it is made more often; the first call stands for all
        {"IODisplayGetFloatParameter", 1},
        {"IODisplaySetFloatParameter", 1},
    };
    for (const auto& [call, times] : cases) {
        for (int which = 1; which <= times; ++which) {
            SCOPED_TRACE(call + " " + std::to_string(which));
            fail_call(call, which);
            step_main_display_brightness(+0.1F);
            EXPECT_FLOAT_EQ(brightness(main), 0.5F);
            EXPECT_EQ(simulator::objects_alive(), lines_t{});
            step_main_display_brightness(+0.1F);
            EXPECT_FLOAT_EQ(brightness(main), 0.6F);
            step_main_display_brightness(-0.1F);
        }
    }
}

}  // namespace
