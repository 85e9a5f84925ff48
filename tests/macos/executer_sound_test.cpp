#include "macos/executer_sound.h"

#include <gtest/gtest.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "control/calls.h"
#include "control/objects.h"
#include "control/sound.h"
#include "macos/executer_level.h"
#include "support/fail_call.h"
#include "support/log_capture.h"

namespace {

using lines_t = std::vector<std::string>;
using simulator::output_device_t;

TEST(stepped_level, stays_between_silence_and_full_for_whatever_was_read) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float level, step, stepped;
    } cases[] = {
        {0.6F, 0.1F, 0.6F + 0.1F},
        {0.95F, 0.1F, 1.0F},
        {0.05F, -0.1F, 0.0F},
        {1.0F, 0.1F, 1.0F},
        {0.0F, -0.1F, 0.0F},
        {7.0F, -0.1F, 1.0F},
        {-7.0F, 0.1F, 0.0F},
        {infinity, -0.1F, 1.0F},
        {-infinity, 0.1F, 0.0F},
        {std::numeric_limits<float>::quiet_NaN(), 0.1F, 0.1F},
        {std::numeric_limits<float>::quiet_NaN(), -0.1F, 0.0F},
    };
    for (const auto& [level, step, stepped] : cases) {
        EXPECT_EQ(stepped_level(level, step), stepped) << level << " " << step;
    }
}

class executer_sound_test : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(simulator::objects_alive(), lines_t{}); }

    log_capture_t log;
};

TEST_F(executer_sound_test, the_default_device_is_stepped_and_also_written_at_its_limit) {
    const auto other = simulator::connect_output({.name = "headphones"});
    const struct {
        float before, step, after;
    } cases[] = {{0.6F, 0.1F, 0.7F}, {0.95F, 0.1F, 1.0F}, {1.0F, 0.1F, 1.0F}, {0.05F, -0.1F, 0.0F}};
    for (const auto& [before, step, after] : cases) {
        const auto device = simulator::connect_output({.name = "speakers", .volume = before});
        simulator::make_default_output(device);
        const auto writes = simulator::sound_writes().size();
        volume(step);
        EXPECT_FLOAT_EQ(*simulator::output(device)->volume, after);
        EXPECT_EQ(simulator::sound_writes().size(), writes + 1);
    }
    EXPECT_EQ(simulator::output(other)->volume, 0.5F);
    EXPECT_EQ(log.lines(), lines_t{});
}

TEST_F(executer_sound_test, every_mute_state_becomes_its_negation) {
    for (const std::uint32_t before : {0U, 1U, 7U, 0x80000000U}) {
        const auto device = simulator::connect_output({.name = "speakers", .mute = before});
        simulator::make_default_output(device);
        unmute_mute_main_sound_device();
        EXPECT_EQ(simulator::output(device)->mute, before == 0 ? 1U : 0U);
    }
    EXPECT_EQ(log.lines(), lines_t{});
}

// Collects the functions that log.
struct function_sink_t : spdlog::sinks::base_sink<spdlog::details::null_mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        names.emplace(message.source.funcname);
    }
    void flush_() override {}

    std::set<std::string> names;
};

// Each failure is prepared with the default device, of which only the next action may see it.
TEST_F(executer_sound_test, a_failure_is_logged_once_and_costs_one_action) {
    const auto functions = std::make_shared<function_sink_t>();
    utils::add_all_logger_sinks(functions);
    const auto up = [] { volume(+0.1F); };
    const std::string get = "AudioObjectGetPropertyData";
    const std::string set = "AudioObjectSetPropertyData";
    const std::string mute = "E unmute_mute_main_sound_device: Failed to ";
    const auto call_fails = [](const std::string& function, int which) {
        return [=](AudioObjectID) { fail_call(function, which); };
    };
    const auto unplugged_after = [&](int reads) {
        return [=](AudioObjectID device) {
            const auto unplug = [device] { simulator::disconnect_output(device); };
            if (reads == 0) {
                unplug();
            } else if (reads == 1) {
                simulator::after_next(get, unplug);
            } else {
                simulator::after_next(get, [=] { simulator::after_next(get, unplug); });
            }
        };
    };
    const auto becomes = [](const output_device_t& state) {
        return [=](AudioObjectID device) { simulator::set_output(device, state); };
    };
    const struct {
        void (*action)();
        std::function<void(AudioObjectID)> prepare;
        std::string line;
    } cases[] = {
        {up, call_fails(get, 1), "E Failed to get default audio device."},
        {up, call_fails(get, 2), "E Failed to get volume."},
        {up, unplugged_after(0), "E Failed to get volume."},
        {up, unplugged_after(1), "E Failed to get volume."},
        {up, becomes({.name = "no volume", .volume = {}}), "E Failed to get volume."},
        {up, call_fails(set, 1), "E Failed to set volume."},
        {up, unplugged_after(2), "E Failed to set volume."},
        {up, becomes({.name = "fixed", .volume_writable = false}), "E Failed to set volume."},
        {unmute_mute_main_sound_device, call_fails(get, 1), mute + "get default audio device."},
        {unmute_mute_main_sound_device, call_fails(get, 2),
         mute + "get muted state of default audio device."},
        {unmute_mute_main_sound_device, unplugged_after(1),
         mute + "get muted state of default audio device."},
        {unmute_mute_main_sound_device, becomes({.name = "no mute", .mute = {}}),
         mute + "get muted state of default audio device."},
        {unmute_mute_main_sound_device, call_fails(set, 1),
         mute + "set mute state of default audio device."},
        {unmute_mute_main_sound_device, unplugged_after(2),
         mute + "set mute state of default audio device."},
        {unmute_mute_main_sound_device, becomes({.name = "fixed", .mute_writable = false}),
         mute + "set mute state of default audio device."},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const auto device = simulator::connect_output({.name = "speakers"});
        cases[i].prepare(device);
        const auto before = simulator::output(device);
        cases[i].action();
        EXPECT_EQ(log.lines(), lines_t{cases[i].line});
        EXPECT_EQ(functions->names,
                  (std::set<std::string>{cases[i].action == up ? "volume"
                                                               : "unmute_mute_main_sound_device"}));
        if (const auto after = simulator::output(device)) {
            EXPECT_EQ(after->volume, before->volume);
            EXPECT_EQ(after->mute, before->mute);
            simulator::disconnect_output(device);
        }
        log.forget();
        functions->names.clear();

        const auto next = simulator::connect_output({.name = "speakers"});
        cases[i].action();
        EXPECT_TRUE(simulator::sound_writes().back().accepted);
        EXPECT_EQ(simulator::sound_writes().back().device, next);
        EXPECT_EQ(log.lines(), lines_t{});
        simulator::disconnect_output(next);
    }
}

}  // namespace
