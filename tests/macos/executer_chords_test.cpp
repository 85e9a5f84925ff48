#include "macos/executer_chords.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "macos/executer.h"
#include "macos/executer_keys.h"
#include "support/log_capture.h"

// For the messages of failed expectations; found by the type's own namespace.
void PrintTo(const key_event_t& event, std::ostream* stream) {
    *stream << std::hex << "0x" << event.code << (event.down ? " down " : " up ") << "0x"
            << event.flags << std::dec;
}

namespace {

constexpr std::uint64_t shift = 0x20000;
constexpr std::uint64_t control = 0x40000;
constexpr std::uint64_t option = 0x80000;
constexpr std::uint64_t command = 0x100000;

std::vector<input_value_e> inputs(const std::vector<std::uint32_t>& numbers) {
    std::vector<input_value_e> list;
    list.reserve(numbers.size());
    for (const std::uint32_t number : numbers) {
        list.push_back(static_cast<input_value_e>(number));
    }
    return list;
}

std::vector<key_event_t> chord(const std::vector<std::uint32_t>& numbers) {
    const key_list_t parts = split_key_list(inputs(numbers));
    return chord_events(parts.modifiers, parts.keys);
}

shortcut_t shortcut(const std::vector<std::uint32_t>& numbers) {
    shortcut_t action;
    action.combination = inputs(numbers);
    return action;
}

using events_t = std::vector<key_event_t>;

}  // namespace

TEST(executer_keys, every_key_but_the_holes_has_a_code_of_its_own) {
    std::set<std::uint32_t> codes;
    for (std::uint32_t number = 0; number < 300; ++number) {
        const std::uint32_t key = input_to_vk(static_cast<input_value_e>(number));
        const bool hole = number == 150 || number == 171 || (number >= 211 && number <= 218);
        if (number < 106 || number > 222 || hole) {
            EXPECT_EQ(key, 0U) << number;
        } else {
            EXPECT_EQ(key & ~0xFFU, vk_present) << number;
            EXPECT_TRUE(codes.insert(key).second) << number;
        }
    }
    EXPECT_EQ(input_to_vk(static_cast<input_value_e>(0xFFFFFFFF)), 0U);
}

TEST(executer_keys, the_codes_are_the_platform_s) {
    // The first and the last key of each group, and those that a group's order makes easy to mix
    // up.
    for (const auto& [number, code] : std::map<std::uint32_t, std::uint32_t>{
             {106, 0x00}, {108, 0x08}, {127, 0x09}, {131, 0x06}, {132, 0x1D}, {137, 0x17},
             {138, 0x16}, {141, 0x19}, {142, 0x35}, {143, 0x3B}, {146, 0x37}, {149, 0x3D},
             {151, 0x36}, {152, 0x1E}, {153, 0x21}, {161, 0x1B}, {162, 0x31}, {166, 0x39},
             {167, 0x74}, {170, 0x73}, {172, 0x75}, {173, 0x45}, {175, 0x43}, {177, 0x7B},
             {178, 0x7C}, {179, 0x7E}, {180, 0x7D}, {181, 0x52}, {188, 0x59}, {189, 0x5B},
             {190, 0x5C}, {191, 0x7A}, {202, 0x6F}, {210, 0x5A}, {219, 0x4C}, {220, 0x41},
             {221, 0x2C}, {222, 0x0A},
         }) {
        EXPECT_EQ(input_to_vk(static_cast<input_value_e>(number)), vk_present | code) << number;
    }
}

TEST(executer_keys, both_sides_of_the_keyboard_carry_the_same_flag) {
    const std::map<std::uint32_t, std::uint64_t> flags{
        {143, control}, {144, shift}, {145, option}, {146, command},
        {147, control}, {148, shift}, {149, option}, {151, command}};
    for (std::uint32_t number = 100; number < 230; ++number) {
        const auto expected = flags.find(number);
        const auto input = static_cast<input_value_e>(number);
        EXPECT_EQ(is_modifier(input), expected != flags.end()) << number;
        EXPECT_EQ(modifier_mask(input), expected == flags.end() ? 0 : expected->second) << number;
    }
}

TEST(executer_chords, modifiers_stand_around_the_keys) {
    EXPECT_EQ(chord({146, 108}), (events_t{{0x37, true, command},
                                           {0x08, true, command},
                                           {0x08, false, command},
                                           {0x37, false, command}}));
    EXPECT_EQ(chord({146, 144, 137}), (events_t{{0x37, true, command},
                                                {0x38, true, command | shift},
                                                {0x17, true, command | shift},
                                                {0x17, false, command | shift},
                                                {0x38, false, command | shift},
                                                {0x37, false, command}}));
    // A modifier that comes after a key in the list is held around it all the same.
    EXPECT_EQ(chord({108, 146}), chord({146, 108}));
}

TEST(executer_chords, plain_keys_come_up_in_the_order_they_went_down) {
    EXPECT_EQ(chord({108, 109}),
              (events_t{{0x08, true, 0}, {0x02, true, 0}, {0x08, false, 0}, {0x02, false, 0}}));
}

TEST(executer_chords, modifiers_alone_are_pressed_and_released_in_reverse) {
    EXPECT_EQ(chord({143, 151}), (events_t{{0x3B, true, control},
                                           {0x36, true, control | command},
                                           {0x36, false, control | command},
                                           {0x3B, false, control}}));
    // Both sides of one modifier share its flag, so it is gone with the first release.
    EXPECT_EQ(
        chord({144, 148}),
        (events_t{
            {0x38, true, shift}, {0x3C, true, shift}, {0x3C, false, shift}, {0x38, false, 0}}));
}

TEST(executer_chords, inputs_without_a_key_are_left_out) {
    EXPECT_EQ(split_key_list(inputs({150})).keys.size(), 1U);
    EXPECT_EQ(chord({150, 146, 4, 171, 108, 215, 0xFFFFFFFF}), chord({146, 108}));
    EXPECT_EQ(chord({150, 3, 223}), events_t{});
    EXPECT_EQ(chord({}), events_t{});
    // Whatever stands in the list of modifiers is held; only real modifiers bring a flag.
    EXPECT_EQ(chord_events(inputs({106}), inputs({107})),
              (events_t{{0x00, true, 0}, {0x0B, true, 0}, {0x0B, false, 0}, {0x00, false, 0}}));
}

namespace {

// What the desktop saw of the keys that were posted.
events_t posted_keys() {
    events_t keys;
    for (const auto& event : simulator::events()) {
        EXPECT_EQ(event.origin, simulator::event_origin_e::posted);
        EXPECT_EQ(event.source_pid, getpid());
        keys.push_back({static_cast<std::uint16_t>(event.key_code), event.type == kCGEventKeyDown,
                        event.flags});
    }
    return keys;
}

class executer_keys_on_the_desktop : public testing::Test {
  protected:
    ~executer_keys_on_the_desktop() override {
        EXPECT_EQ(simulator::objects_alive(), std::vector<std::string>{});
    }

    events_t keys_of(const action_t& action) {
        simulator::forget_events();
        executer_t().process_action(action);
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
        return posted_keys();
    }

    log_capture_t log;
};

}  // namespace

TEST_F(executer_keys_on_the_desktop, each_chord_action_posts_its_chord) {
    struct case_t {
        action_t action;
        std::vector<std::uint32_t> list;
    };
    for (const case_t& one : std::vector<case_t>{
             {copy_t{}, {146, 108}},
             {cut_t{}, {146, 129}},
             {paste_t{}, {146, 127}},
             {screenshot_t{}, {146, 144, 137}},
             {close_program_t{}, {146, 122}},
             {go_back_t{}, {146, 131}},
             {redo_t{}, {146, 144, 131}},
             {open_emoji_menu_t{}, {143, 146, 162}},
             {open_new_tab_t{}, {146, 125}},
             {swap_keyboard_input_language_t{}, {143, 162}},
             {shortcut({145, 177, 106}), {145, 177, 106}},
             {shortcut({150, 9}), {}},
             {default_action_t{}, {}},
             {do_nothing_t{}, {}},
             {open_hovered_file_t{}, {}},
         }) {
        EXPECT_EQ(keys_of(one.action), chord(one.list)) << action_name(one.action);
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST_F(executer_keys_on_the_desktop, an_empty_shortcut_is_an_error_and_posts_nothing) {
    EXPECT_EQ(keys_of(shortcut({})), events_t{});
    EXPECT_EQ(log.lines(), std::vector<std::string>{"E Invalid shortcut action: no inputs"});
}

TEST_F(executer_keys_on_the_desktop, without_a_source_or_an_event_the_rest_is_still_sent) {
    simulator::fail_next("CGEventSourceCreate");
    EXPECT_EQ(keys_of(copy_t{}), chord({146, 108}));

    simulator::fail_next("CGEventCreateKeyboardEvent");
    events_t rest = chord({146, 108});
    rest.erase(rest.begin());
    EXPECT_EQ(keys_of(copy_t{}), rest);

    EXPECT_EQ(keys_of(copy_t{}), chord({146, 108}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}
