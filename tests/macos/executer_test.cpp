#include "macos/executer.h"

#include <cmath>

#include "macos/executer_fixture.h"
#include "macos/executer_keys.h"
#include "support/desktop.h"
#include "support/test.h"

namespace {

using louder = increase_volume_t;
using quieter = decrease_volume_t;
using toggle = mute_volume_t;
using brighter = increase_brightness_t;
using minimize = minimize_window_t;
using maximize = maximize_window_t;
using close_it = close_window_t;

action_t shortcut(const std::vector<std::uint32_t>& numbers) {
    return shortcut_t(nlohmann::json{{"combination", numbers}});
}
action_t program(const std::string& path) {
    return open_standard_path_program_t(nlohmann::json{{"path", path}});
}

const std::string read_sound = "AudioObjectGetPropertyData";
const std::string make_key = "CGEventCreateKeyboardEvent", make_click = "CGEventCreateMouseEvent";
const std::string search = "IORegistryEntrySearchCFProperty";
const std::string hit_test = "AXUIElementCopyElementAtPosition";
const std::string copied = "+37@ +08@ -08@ -37@", both_options = "+3A~ +3D~ -3D~ -3A";

// What actions say of themselves and of their failures.
const std::string up = "I Volume +", down = "I Volume -", toggling = "I Volume mute toggle";
const std::string mute_failed = "E unmute_mute_main_sound_device: Failed to ";
const std::string no_mute = mute_failed + "get muted state of default audio device.";
const std::string mute_stays = mute_failed + "set mute state of default audio device.";
const std::string minimizing = "I Minimize window (hovered)";
const std::string not_minimized = "E AX minimize failed (check Accessibility perms?)";
const std::string maximizing = "I Maximize/Zoom window (hovered)";
const std::string not_maximized = "E AX maximize/zoom failed";
const std::string closing = "I Close window (hovered)", not_closed = "E AX close failed";

// What they ask of the window.
const std::string set_minimized = "front set AXMinimized to true";
const std::string press_minimize = "front pressed AXMinimizeButton";
const std::string set_full_screen = "front set AXFullScreen to true";
const std::string press_zoom = "front pressed AXZoomButton";
const std::string press_close = "front pressed AXCloseButton";

}  // namespace

TEST_F(executer_test, does_to_the_desktop_what_its_state_allows) {
    const auto sound = [this](const simulator::output_device_t& state) {
        return [=, this] { simulator::set_output(speakers, state); };
    };
    const auto display = [this](const simulator::display_service_t& service) {
        return [=, this] { set_up_screen({"screen", vendor, model, service}); };
    };
    const auto disconnect_read = [this] {
        simulator::after_next("IODisplayGetFloatParameter",
                              [this] { simulator::disconnect_display(screen); });
    };
    const auto window = [this](const simulator::window_options_t& options) {
        return [=, this] { open_window(options); };
    };
    const auto walk = [&](std::size_t groups) {
        return window({.control_knows_window = false, .groups_around_control = groups});
    };
    const auto background = [this] {
        clear_screen();
        simulator::show_background(application, frame);
    };
    // The call with this number, from 1.
    const auto fails = [](const std::string& call, std::size_t number) {
        return [=] { simulator::fail_call(call, number); };
    };
    const simulator::display_numbers_t known{vendor, model};
    const struct {
        action_t action;
        lines_t effects;
        std::function<void()> before = [] {};
    } rows[] = {
        {close_program_t{}, {"+37@ +0C@ -0C@ -37@"}},
        {shortcut({106, 109}), {"+00 +02 -00 -02"}},
        // Both sides of one modifier share its flag, so it is gone with the first release.
        {shortcut({145, 149}), {both_options}},
        {shortcut({150, 108, 4, 171, 146, 215, 0xFFFFFFFF}), {copied}},
        {shortcut({}), {"E Invalid shortcut action: no inputs"}},
        {copy_t{}, {copied}, fails("CGEventSourceCreate", 1)},
        {copy_t{}, {"+37@ -08@ -37@"}, fails(make_key, 2)},
        {copy_t{}, {"+37@ +08@ -37@ -08"}, fails(make_key, 3)},
        {shortcut({145, 149}), {both_options}, fails(make_key, 4)},

        {double_click_t{}, {"down(120,80)x1 up(120,80)x1 down(120,80)x2 up(120,80)x2"}},
        {double_click_t{}, {}, fails("CGEventCreate", 1)},
        {double_click_t{}, {}, fails(make_click, 1)},
        {double_click_t{}, {}, fails(make_click, 4)},
        {wheel_forward_t{}, {"wheels 1: 3,0"}},

        {program("/Applications/My \xC3\x9C.app"), {"opened /Applications/My \xC3\x9C.app"}},
        {program(std::string("/Applications\0/Mail.app", 23)), {}},

        // At its limit it is written too. What is no number counts as silence.
        {louder{}, {"volume 1.00", up}, sound({.volume = 1.0F})},
        {quieter{}, {"volume 0.00", down}, sound({.volume = 0.05F})},
        {louder{}, {"volume 0.10", up}, sound({.volume = NAN})},
        {louder{}, {up, "E Failed to get volume."}, sound({.volume = {}})},
        {louder{},
         {"volume 0.60 refused", up, "E Failed to set volume."},
         sound({.volume_writable = false})},
        {louder{}, {up, "E Failed to get default audio device."}, fails(read_sound, 1)},
        {toggle{}, {"mute 0.00", toggling}, sound({.mute = 0x80000000U})},
        {toggle{}, {toggling, no_mute}, sound({.mute = {}})},
        {toggle{}, {"mute 1.00 refused", toggling, mute_stays}, sound({.mute_writable = false})},
        {toggle{}, {toggling, mute_failed + "get default audio device."}, fails(read_sound, 1)},

        {brighter{}, {"screen 1.00"}, display({.below = known, .brightness = 0.97F})},
        {brighter{}, {}, display({.below = known, .brightness = {}})},
        // It is known by the entry's own numbers, and by those below where the entry has none. It
        // is looked up twice, each time as the second of two.
        {brighter{}, {"screen 0.60"}, display({.below = {1, 2}, .entry = known})},
        {brighter{}, {"screen 0.60"}, display({.below = {vendor, {}}, .entry = {{}, model}})},
        {brighter{}, {}, fails(search, 3)},
        {brighter{}, {}, fails(search, 8)},
        {brighter{}, {"beamer 0.60"}, disconnect_read},

        {minimize{}, {press_minimize, minimizing}, window({.minimized_settable = false})},
        {minimize{}, {set_minimized, minimizing, not_minimized}, window({.sets_refused = true})},
        {minimize{},
         {press_minimize, minimizing, not_minimized},
         window({.presses_refused = true, .minimized_settable = false})},
        {maximize{}, {press_zoom, set_full_screen, maximizing}, window({.presses_refused = true})},
        {maximize{},
         {maximizing, not_maximized},
         window({.has_zoom_button = false, .full_screen_settable = false})},
        {maximize{},
         {set_full_screen, maximizing, not_maximized},
         window({.has_zoom_button = false, .sets_refused = true})},
        {close_it{}, {press_close, closing, not_closed}, window({.presses_unanswered = true})},
        // A window is looked for on the way up in 32 elements: the control, its groups, itself.
        {close_it{}, {press_close, closing}, walk(30)},
        {close_it{}, {closing, not_closed}, walk(31)},
        {close_it{}, {press_close, closing}, window({.groups_around_control = 31})},
        {close_it{}, {closing, not_closed}, background},
        {close_it{}, {closing, not_closed}, fails("CGEventCreate", 1)},
        {close_it{}, {closing, not_closed}, fails(hit_test, 1)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(testing::Message() << "row " << i << ": " << action_name(rows[i].action));
        set_up_desktop();
        rows[i].before();
        EXPECT_EQ(effects_of(rows[i].action), rows[i].effects);
    }
}

TEST(executer_keys, are_those_of_the_platform_s_keyboard) {
    // What each key of the ANSI keyboard is to us, by the platform's code from 0 on; 0: no key.
    constexpr std::array<std::uint32_t, 128> keyboard{
        106, 124, 109, 111, 113, 112, 131, 129, 108, 127, 222, 107, 122, 128, 110, 123,  //
        130, 125, 133, 134, 135, 136, 138, 137, 160, 141, 139, 161, 140, 132, 152, 120,  //
        126, 153, 114, 121, 163, 117, 115, 157, 116, 154, 158, 155, 221, 119, 118, 156,  //
        165, 162, 159, 164, 0,   142, 151, 146, 144, 166, 145, 143, 148, 149, 147, 0,    //
        207, 220, 0,   175, 0,   173, 0,   0,   0,   0,   0,   176, 219, 0,   174, 208,  //
        209, 0,   181, 182, 183, 184, 185, 186, 187, 188, 210, 189, 190, 0,   0,   0,    //
        195, 196, 197, 193, 198, 199, 0,   201, 0,   203, 206, 204, 0,   200, 0,   202,  //
        0,   205, 0,   170, 167, 172, 194, 169, 192, 168, 191, 177, 178, 180, 179, 0};
    constexpr std::array<std::uint64_t, 4> flags{0x40000, 0x20000, 0x80000, 0x100000};
    for (std::uint32_t number = 1; number < 300; ++number) {
        const auto input = static_cast<input_value_e>(number);
        const auto code = std::find(keyboard.begin(), keyboard.end(), number) - keyboard.begin();
        EXPECT_EQ(input_to_vk(input), code == 128 ? 0 : vk_present | code) << number;
        const std::uint32_t after_control = number - 143;
        const bool modifier = after_control <= 8 && number != 150;
        EXPECT_EQ(is_modifier(input), modifier) << number;
        EXPECT_EQ(modifier_mask(input), modifier ? flags[number == 151 ? 3 : after_control % 4] : 0)
            << number;
    }
}
