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

using events_t = std::vector<key_event_t>;
using numbers_t = std::vector<std::uint32_t>;

events_t chord(const numbers_t& numbers) {
    std::vector<input_value_e> list;
    for (const std::uint32_t number : numbers) {
        list.push_back(static_cast<input_value_e>(number));
    }
    const key_list_t parts = split_key_list(list);
    return chord_events(parts.modifiers, parts.keys);
}

}  // namespace

TEST(executer_keys, every_key_but_the_holes_has_a_code_of_its_own_and_the_platform_s) {
    // The first and the last key of each group, and those that a group's order makes easy to mix
    // up.
    const std::map<std::uint32_t, std::uint32_t> known{
        {106, 0x00}, {108, 0x08}, {127, 0x09}, {131, 0x06}, {132, 0x1D}, {137, 0x17}, {138, 0x16},
        {141, 0x19}, {142, 0x35}, {143, 0x3B}, {146, 0x37}, {149, 0x3D}, {151, 0x36}, {152, 0x1E},
        {153, 0x21}, {161, 0x1B}, {162, 0x31}, {166, 0x39}, {167, 0x74}, {170, 0x73}, {172, 0x75},
        {173, 0x45}, {175, 0x43}, {177, 0x7B}, {178, 0x7C}, {179, 0x7E}, {180, 0x7D}, {181, 0x52},
        {188, 0x59}, {189, 0x5B}, {190, 0x5C}, {191, 0x7A}, {202, 0x6F}, {210, 0x5A}, {219, 0x4C},
        {220, 0x41}, {221, 0x2C}, {222, 0x0A}};
    const std::map<std::uint32_t, std::uint64_t> flags{
        {143, control}, {144, shift}, {145, option}, {146, command},
        {147, control}, {148, shift}, {149, option}, {151, command}};
    std::set<std::uint32_t> codes;
    for (std::uint32_t number = 0; number < 300; ++number) {
        const auto input = static_cast<input_value_e>(number);
        const std::uint32_t key = input_to_vk(input);
        const bool hole = number == 150 || number == 171 || (number >= 211 && number <= 218);
        if (number < 106 || number > 222 || hole) {
            EXPECT_EQ(key, 0U) << number;
        } else {
            EXPECT_EQ(key & ~0xFFU, vk_present) << number;
            EXPECT_TRUE(codes.insert(key).second) << number;
        }
        if (const auto code = known.find(number); code != known.end()) {
            EXPECT_EQ(key, vk_present | code->second) << number;
        }
        const auto flag = flags.find(number);
        EXPECT_EQ(is_modifier(input), flag != flags.end()) << number;
        EXPECT_EQ(modifier_mask(input), flag == flags.end() ? 0 : flag->second) << number;
    }
}

TEST(executer_chords, modifiers_stand_around_the_keys) {
    const struct {
        numbers_t list;
        events_t events;
    } cases[] = {
        {{146, 144, 137},
         {{0x37, true, command},
          {0x38, true, command | shift},
          {0x17, true, command | shift},
          {0x17, false, command | shift},
          {0x38, false, command | shift},
          {0x37, false, command}}},
        // Keys come up in the order they went down.
        {{108, 109}, {{0x08, true, 0}, {0x02, true, 0}, {0x08, false, 0}, {0x02, false, 0}}},
        // Both sides of one modifier share its flag, so it is gone with the first release.
        {{144, 148},
         {{0x38, true, shift}, {0x3C, true, shift}, {0x3C, false, shift}, {0x38, false, 0}}},
        // A modifier that comes after a key in the list is held around it all the same.
        {{108, 146}, chord({146, 108})},
        // Inputs without a key are left out.
        {{150, 146, 4, 171, 108, 215, 0xFFFFFFFF}, chord({146, 108})},
        {{150, 3, 223}, {}},
    };
    for (const auto& [list, events] : cases) {
        EXPECT_EQ(chord(list), events);
    }
}

TEST(executer_chords, keys_reach_the_desktop_and_a_call_that_fails_costs_one_of_them) {
    const log_capture_t log;
    const auto keys_of = [](const action_t& action) {
        simulator::forget_events();
        executer_t().process_action(action);
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
        events_t keys;
        for (const auto& event : simulator::events()) {
            EXPECT_EQ(event.origin, simulator::event_origin_e::posted);
            EXPECT_EQ(event.source_pid, getpid());
            keys.push_back({static_cast<std::uint16_t>(event.key_code),
                            event.type == kCGEventKeyDown, event.flags});
        }
        EXPECT_EQ(simulator::objects_alive(), std::vector<std::string>{});
        return keys;
    };
    EXPECT_EQ(keys_of(close_program_t{}), chord({146, 122}));
    for (const action_t& silent : {action_t(default_action_t{}), action_t(do_nothing_t{}),
                                   action_t(open_hovered_file_t{})}) {
        EXPECT_EQ(keys_of(silent), events_t{}) << action_name(silent);
    }
    simulator::fail_next("CGEventSourceCreate");
    EXPECT_EQ(keys_of(copy_t{}), chord({146, 108}));
    simulator::fail_next("CGEventCreateKeyboardEvent");
    events_t rest = chord({146, 108});
    rest.erase(rest.begin());
    EXPECT_EQ(keys_of(copy_t{}), rest);
    EXPECT_EQ(keys_of(copy_t{}), chord({146, 108}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}
