#include "macos/executer_sound.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <tuple>
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
    constexpr float nothing = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [level, step, stepped] : {std::tuple{0.6F, 0.1F, 0.6F + 0.1F},
                                               {0.95F, 0.1F, 1.0F},
                                               {0.05F, -0.1F, 0.0F},
                                               {7.0F, -0.1F, 1.0F},
                                               {-7.0F, 0.1F, 0.0F},
                                               {infinity, -0.1F, 1.0F},
                                               {-infinity, 0.1F, 0.0F},
                                               {nothing, 0.1F, 0.1F},
                                               {nothing, -0.1F, 0.0F}}) {
        EXPECT_EQ(stepped_level(level, step), stepped) << level << " " << step;
    }
}

class executer_sound_test : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(simulator::objects_alive(), lines_t{}); }

    log_capture_t log;
};

TEST_F(executer_sound_test, the_default_device_changes_and_no_other) {
    const auto other = simulator::connect_output({.name = "headphones"});
    // At its limit it is written too; any number but 0 is muted.
    for (const std::uint32_t mute : {0U, 1U, 0x80000000U}) {
        const auto device =
            simulator::connect_output({.name = "speakers", .volume = 1.0F, .mute = mute});
        simulator::make_default_output(device);
        const auto writes = simulator::sound_writes().size();
        volume(+0.1F);
        EXPECT_EQ(simulator::output(device)->volume, 1.0F);
        EXPECT_EQ(simulator::sound_writes().size(), writes + 1);
        volume(-0.1F);
        EXPECT_FLOAT_EQ(*simulator::output(device)->volume, 0.9F);
        unmute_mute_main_sound_device();
        EXPECT_EQ(simulator::output(device)->mute, mute == 0 ? 1U : 0U);
    }
    EXPECT_EQ(simulator::output(other)->volume, 0.5F);
    EXPECT_EQ(log.lines(), lines_t{});
}

// Each failure is prepared with the default device, of which only the next action may see it.
TEST_F(executer_sound_test, a_failure_is_logged_once_and_costs_one_action) {
    const auto up = [] { volume(+0.1F); };
    const auto toggle = unmute_mute_main_sound_device;
    const std::string get = "AudioObjectGetPropertyData";
    const std::string set = "AudioObjectSetPropertyData";
    const auto call_fails = [](const std::string& function, int which) {
        return [=](AudioObjectID) { fail_call(function, which); };
    };
    const auto unplugged_after = [&](int reads) {
        return [=](AudioObjectID device) {
            const auto unplug = [device] { simulator::disconnect_output(device); };
            if (reads == 1) {
                simulator::after_next(get, unplug);
            } else {
                simulator::after_next(get, [=] { simulator::after_next(get, unplug); });
            }
        };
    };
    const auto becomes = [](const output_device_t& state) {
        return [=](AudioObjectID device) { simulator::set_output(device, state); };
    };
    const std::string no_device = "get default audio device.";
    const std::string no_mute = "get muted state of default audio device.";
    const std::string mute_stays = "set mute state of default audio device.";
    const struct {
        void (*action)();
        std::function<void(AudioObjectID)> prepare;
        std::string failed_to;
    } cases[] = {
        {up, call_fails(get, 1), no_device},
        {up, simulator::disconnect_output, "get volume."},
        {up, call_fails(get, 2), "get volume."},
        {up, unplugged_after(1), "get volume."},
        {up, becomes({.name = "no volume", .volume = {}}), "get volume."},
        {up, call_fails(set, 1), "set volume."},
        {up, unplugged_after(2), "set volume."},
        {up, becomes({.name = "fixed", .volume_writable = false}), "set volume."},
        {toggle, call_fails(get, 1), no_device},
        {toggle, call_fails(get, 2), no_mute},
        {toggle, unplugged_after(1), no_mute},
        {toggle, becomes({.name = "no mute", .mute = {}}), no_mute},
        {toggle, call_fails(set, 1), mute_stays},
        {toggle, unplugged_after(2), mute_stays},
        {toggle, becomes({.name = "fixed", .mute_writable = false}), mute_stays},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const auto& [action, prepare, failed_to] = cases[i];
        const auto device = simulator::connect_output({.name = "speakers"});
        prepare(device);
        const auto before = simulator::output(device);
        action();
        EXPECT_EQ(log.lines(),
                  lines_t{(action == toggle ? "E unmute_mute_main_sound_device: Failed to "
                                            : "E Failed to ") +
                          failed_to});
        if (const auto after = simulator::output(device)) {
            EXPECT_EQ(after->volume, before->volume);
            EXPECT_EQ(after->mute, before->mute);
            simulator::disconnect_output(device);
        }
        log.forget();

        const auto next = simulator::connect_output({.name = "speakers"});
        action();
        EXPECT_TRUE(simulator::sound_writes().back().accepted);
        EXPECT_EQ(simulator::sound_writes().back().device, next);
        EXPECT_EQ(log.lines(), lines_t{});
        simulator::disconnect_output(next);
    }
}

}  // namespace
