#pragma once

#include <spdlog/fmt/fmt.h>

#include "macos/executer.h"
#include "support/desktop.h"
#include "support/log_capture.h"
#include "support/test.h"

// A desktop for actions, and what they do to it in words.
class executer_test : public testing::Test {
  protected:
    executer_test() {
        simulator::move_to(simulator::connect({"mouse", 1, 2}), place);
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
        simulator::connect_output({"headphones"});
        set_up_desktop();
    }

    // What actions change is as at the start: there is another of each, and these count.
    void set_up_desktop() {
        speakers = simulator::connect_output({"speakers"});
        simulator::make_default_output(speakers);
        set_up_screen(simulator::usual_display("screen", vendor, model));
        clear_screen();
        simulator::open_window(application, "behind", frame);
        open_window({});
    }

    // Connected after the beamer, as the main display.
    void set_up_screen(const simulator::display_t& display) {
        for (const auto connected : {beamer, screen}) {
            if (simulator::display(connected)) {
                simulator::disconnect_display(connected);
            }
        }
        beamer = simulator::connect_display(simulator::usual_display("beamer", vendor, model + 1));
        screen = simulator::connect_display(display);
        simulator::make_main_display(screen);
    }

    // Nothing stands under the pointer.
    void clear_screen() {
        simulator::quit_application(application);
        application = simulator::launch_application("Mail");
    }

    // In front of all others, under the pointer.
    void open_window(const simulator::window_options_t& options) const {
        simulator::open_window(application, "front", frame, options);
    }

    // What the action does: the events that it posts, in one line, what it asks of windows, what it
    // writes to devices, what it starts and what it logs. Nothing stays owned.
    lines_t effects_of(const action_t& action) {
        log.forget();
        simulator::forget_events();
        executer_t().process_action(action);
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::leave));
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        lines_t all;
        for (const auto& event : simulator::events()) {
            all.resize(1);
            all[0] += (all[0].empty() ? "" : " ") + words_of(event);
        }
        add_news(all, simulator::window_requests(), _requests,
                 [](const auto& asked) { return asked.title + " " + asked.request; });
        add_news(all, simulator::sound_writes(), _sound_writes, [this](const auto& write) {
            const bool volume = write.property == simulator::sound_property_e::volume;
            return fmt::format("{}{} {:.2f}{}", write.device == speakers ? "" : "headphones ",
                               volume ? "volume" : "mute", write.value,
                               write.accepted ? "" : " refused");
        });
        add_news(
            all, simulator::brightness_writes(), _brightness_writes, [this](const auto& write) {
                return fmt::format("{} {:.2f}{}", write.display == screen ? "screen" : "beamer",
                                   write.value, write.accepted ? "" : " refused");
            });
        add_news(all, simulator::launches(), _launches,
                 [](const auto& path) { return "opened " + path; });
        const lines_t logged = log.lines();
        all.insert(all.end(), logged.begin(), logged.end());
        return all;
    }

    static constexpr CGPoint place{120, 80};
    // Holds the place, and no place with a coordinate in the other's stead.
    static constexpr CGRect frame{{100, 0}, {700, 100}};
    // By which displays are known; such numbers use all of their 32 bits.
    static constexpr std::uint32_t vendor = 0xFFFFFFF0;
    static constexpr std::uint32_t model = 1U << 31;

    log_capture_t log;
    AudioObjectID speakers = 0;
    CGDirectDisplayID beamer = 0, screen = 0;
    pid_t application = simulator::launch_application("Mail");

  private:
    template <typename item_t, typename words_t>
    static void add_news(lines_t& all, const std::vector<item_t>& items, std::ptrdiff_t& seen,
                         words_t words) {
        std::transform(items.begin() + seen, items.end(), std::back_inserter(all), words);
        seen = std::ssize(items);
    }

    // A key that goes down (+) or comes up (-) by its code, with the flags of ^ Control, ~ Option,
    // $ Shift and @ Command: "+08@". A click with its place and its state. A turn of the wheel, in
    // lines, by the count of wheels.
    static std::string words_of(const simulator::event_record_t& event) {
        if (event.type == kCGEventScrollWheel) {
            return fmt::format("wheels {}: {},{}", event.scroll_wheels, event.scroll.line_axis_1,
                               event.scroll.line_axis_2);
        }
        if (event.type != kCGEventKeyDown && event.type != kCGEventKeyUp) {
            return fmt::format("{}({},{})x{}", event.type == kCGEventLeftMouseDown ? "down" : "up",
                               event.location.x, event.location.y, event.click_state);
        }
        std::string flags;
        for (const auto& [flag, name] :
             {std::pair(0x40000U, '^'), {0x80000U, '~'}, {0x20000U, '$'}, {0x100000U, '@'}}) {
            flags.append((event.flags & flag) != 0 ? 1 : 0, name);
        }
        return fmt::format("{}{:02X}{}", event.type == kCGEventKeyDown ? '+' : '-', event.key_code,
                           flags);
    }

    std::ptrdiff_t _requests = 0, _sound_writes = 0, _brightness_writes = 0, _launches = 0;
};
