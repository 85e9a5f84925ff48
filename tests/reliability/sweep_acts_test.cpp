// Clicks, actions and reloads of a running daemon, each again and again with another call failing.
// After each failure the same act is done without one, and has its whole effect. And what such acts
// cost where nothing fails.

#include "common/action.h"
#include "common/config/config.h"
#include "common/config/config_watcher.h"
#include "failures/counted_costs.h"
#include "failures/failing.h"
#include "macos/executer.h"
#include "macos/hook_manager.h"
#include "support/log_capture.h"
#include "support/supported_mouse.h"
#include "support/test.h"

namespace {

using simulator::event_origin_e, simulator::event_outcome_e;

constexpr std::uint32_t side_1 = 3, side_2 = 4;
constexpr auto settings = R"({"appState": [
    {"type": 1, "appConfigs": {
        "Default": {"3": [{"action": 0}], "4": [{"action": 6}], "8": [{"action": 7}],
                    "5": [{"action": 22, "params": {"combination": [106]}}]},
        "Mail": {"4": [{"action": 8}]}}},
    {"type": 2, "appConfigs": {"Default": {"4": [{"action": 6}]}}}]})";

// How much programs have done so far, besides posting events.
std::array<std::size_t, 5> counts() {
    return {simulator::window_requests().size(), simulator::sound_writes().size(),
            simulator::brightness_writes().size(), simulator::launches().size(),
            failing_calls::shell_commands().size()};
}

class sweep_acts_test : public testing::Test {
  protected:
    sweep_acts_test() {
        home.write_settings(settings);
        simulator::set_tap_patience(std::chrono::seconds(5));  // room for a busy machine
        mouse = connect_supported(0, simulator::key_page_pairs);
        simulator::connect_output({});
        simulator::connect_display(simulator::usual_display("Display", 1, 2));
        reopen();
        let_it_happen();
    }

    static void let_it_happen() { EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run)); }

    void start() {
        config_t::instance();
        ASSERT_TRUE(log.wait_for("I Watching config file: " + home.settings_file().string()));
        hooks = std::make_unique<hook_manager_t>();
        simulator::move_to(mouse, {100, 100});
        let_it_happen();
    }

    // A window under the pointer, whatever became of the last one.
    void reopen() {
        simulator::close_window(window);
        window = simulator::open_window(mail, "Inbox", {{0, 0}, {500, 500}});
    }

    // The act with what fails in it; returns all that comes of it.
    std::string played(const std::function<void()>& act, std::size_t failing, means_e means) {
        reopen();
        simulator::forget_events();
        const auto before = counts();
        begin_failing(means, failing);
        act();
        failed = end_failing();
        EXPECT_EQ(keys_down(), lines_t{}) << failed;
        std::string effects;
        for (const auto& event : posted()) {
            effects += std::to_string(event.type) + ":" + std::to_string(event.key_code) + ":" +
                       std::to_string(event.flags) + ":" +
                       std::to_string(event.scroll.line_axis_1) + ":" +
                       std::to_string(event.scroll.line_axis_2) + " ";
        }
        for (std::size_t kind = 0; kind < before.size(); ++kind) {
            effects += "and " + std::to_string(counts()[kind] - before[kind]);
        }
        return effects;
    }

    static std::vector<simulator::event_record_t> posted() {
        auto all = simulator::events();
        std::erase_if(all,
                      [](const auto& event) { return event.origin != event_origin_e::posted; });
        return all;
    }

    // What programs have pressed and not released.
    static lines_t keys_down() {
        std::map<std::string, int> held;
        for (const auto& event : posted()) {
            if (event.type == kCGEventKeyDown || event.type == kCGEventKeyUp) {
                held["key " + std::to_string(event.key_code)] +=
                    event.type == kCGEventKeyDown ? 1 : -1;
            } else if (event.type != kCGEventScrollWheel) {
                held["button"] += event.type == kCGEventLeftMouseDown ? 1 : -1;
            }
        }
        std::erase_if(held, [](const auto& key) { return key.second <= 0; });
        lines_t down;
        std::transform(held.begin(), held.end(), std::back_inserter(down),
                       [](const auto& key) { return key.first; });
        return down;
    }

    // Both halves of what the hand did have the same fate; but a release that memory is refused to
    // passes by itself.
    static void expect_whole_clicks(means_e means) {
        std::vector<event_outcome_e> fates;
        for (const auto& event : simulator::events()) {
            if (event.origin == event_origin_e::hardware && event.type != kCGEventScrollWheel) {
                fates.push_back(event.outcome);
            }
        }
        for (std::size_t i = 0; i + 1 < fates.size(); i += 2) {
            if (means != means_e::allocation || fates[i] != event_outcome_e::swallowed) {
                EXPECT_EQ(fates[i], fates[i + 1]);
            }
            EXPECT_NE(fates[i], event_outcome_e::under_way);
        }
    }

    void sweep(const std::string& name, const std::function<void()>& act) {
        const std::string whole = played(act, 0, means_e::call);
        std::size_t injected = 0;
        std::size_t survived = 0;
        for (const means_e means : all_means) {
            for (std::size_t number = 1;; ++number) {
                SCOPED_TRACE(name + ", call " + std::to_string(number));
                const auto bad_before = bad();
                (void)played(act, number, means);
                if (failed.empty()) {
                    break;
                }
                ++injected;
                ++injected_by[means];
                expect_whole_clicks(means);
                EXPECT_EQ(played(act, 0, means_e::call), whole) << "after " << failed;
                survived += bad() == bad_before ? 1 : 0;
            }
        }
        EXPECT_TRUE(injected > 0 || name.starts_with("action")) << "some do nothing";
        std::printf("sweep %s: %zu failures injected, %zu survived\n", name.c_str(), injected,
                    survived);
    }

    static int bad() {
        return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
    }

    // Waits until the worker has done all that came before: the middle button, bound to nothing,
    // tells. Its own click may be the one that memory is refused to.
    void wait_for_worker() {
        const std::string told = "I Action do_nothing";
        const std::size_t before = log.count(told);
        std::size_t clicks = 0;
        do {
            ++clicks;
            simulator::press(mouse, 2);
            simulator::release(mouse, 2);
            let_it_happen();
        } while (!log.wait_for(told, before + 1, std::chrono::milliseconds(500)) &&
                 failing_memory::has_refused());
        EXPECT_TRUE(log.wait_for(told, before + 1));
        if (clicks > 1) {  // the first was refused, or late
            log.wait_for(told, before + clicks, std::chrono::milliseconds(500));
        }
    }

    temporary_home_t home;
    log_capture_t log;
    simulator::device_id_t mouse = 0;
    pid_t mail = simulator::launch_application("Mail");
    simulator::element_id_t window = 0;
    std::unique_ptr<hook_manager_t> hooks;
    std::string failed;
    std::map<means_e, std::size_t> injected_by;
};

}  // namespace

TEST_F(sweep_acts_test, clicks) {
    mail = simulator::launch_application("Mail of many letters");  // which take memory
    start();
    const std::size_t owned = simulator::objects_alive().size();
    sweep("click of a button", [this] {
        simulator::press(mouse, side_1);
        simulator::release(mouse, side_1);
        let_it_happen();
        wait_for_worker();
    });
    sweep("click of a key-code button", [this] {
        simulator::press_key(mouse, 33);
        let_it_happen();
        simulator::release_key(mouse, 33);
        let_it_happen();
        wait_for_worker();
    });
    sweep("wheel step", [this] {
        simulator::scroll(mouse, 0, 1);
        let_it_happen();
        wait_for_worker();
    });
    sweep("another mouse", [this] {
        const auto other = connect_supported(4);
        simulator::move(other, 0, 0);
        let_it_happen();
        simulator::press(other, side_1);
        simulator::release(other, side_1);
        let_it_happen();
        simulator::disconnect(other);
        simulator::move(mouse, 0, 0);
        let_it_happen();
        wait_for_worker();
    });
    EXPECT_EQ(injected_by.size(), std::size(all_means));
    EXPECT_EQ(simulator::objects_alive().size(), owned);
    EXPECT_EQ(simulator::taps_enabled(), 2U);
    hooks.reset();
    EXPECT_EQ(simulator::objects_alive(), lines_t{});
}

TEST_F(sweep_acts_test, actions) {
    const executer_t executer;
    std::vector<action_t> all{close_program_t{}, double_click_t{}};
    for (int code = 0; code <= 28; ++code) {
        all.push_back(make_action(
            {{"action", code},
             {"params",
              {{"path", "/Applications/Notes.app"}, {"combination", {143, 144, 106, 107}}}}}));
    }
    simulator::move_to(mouse, {100, 100});
    let_it_happen();
    for (const action_t& action : all) {
        sweep("action " + std::string(action_name(action)), [&] {
            try {
                executer.process_action(action);
            } catch (const std::bad_alloc&) {  // the worker logs it
            }
        });
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
    }
    EXPECT_EQ(injected_by.size(), std::size(all_means));
}

TEST_F(sweep_acts_test, an_event_costs_its_thread_what_it_needs_and_nothing_else) {
    start();
    // Every report of the mouse brings two values of motion, whatever else it tells.
    const std::string value =
        "IOHIDValueGetElement IOHIDElementGetDevice IOHIDElementGetUsagePage ";
    const std::string motion = value + value;
    const std::string field = "CGEventGetIntegerValueField ";
    const std::string scroll = field + field + field + field + field + field + field;
    const std::string lock = "lock ", copy = "allocation ";
    const std::string whose_window =
        field + lock +
        "CGEventGetLocation AXUIElementCreateSystemWide AXUIElementSetMessagingTimeout "
        "AXUIElementCopyElementAtPosition AXUIElementSetMessagingTimeout AXUIElementGetPid "
        "CFRelease CFRelease proc_name ";
    const auto ask = [](std::uint32_t input, const char* app) {
        config_t::instance().retrieve_action(qlx_device_e::valtor_pro,
                                             static_cast<input_value_e>(input), app);
    };
    for (const auto& [act, costs] : std::vector<std::pair<std::function<void()>, std::string>>{
             {[&] { simulator::move(mouse, 0, 0); }, motion},
             {[&] { simulator::press(mouse, side_1); }, motion + field + whose_window + lock},
             {[&] { simulator::release(mouse, side_1); }, motion + field + lock},
             // a shortcut, which has memory of its own
             {[&] { simulator::press(mouse, side_2); },
              motion + field + whose_window + lock + copy},
             {[&] { simulator::release(mouse, side_2); }, motion + field + lock + copy},
             {[&] { simulator::scroll(mouse, 0, -1); },
              motion + scroll + whose_window + lock + lock},
             {[&] { simulator::scroll(mouse, 1, 0); }, motion + scroll},
             {[&] { ask(4, "Mail"); }, lock},
             {[&] { ask(9, "Notes"); }, lock}}) {
        act();  // the first time of all is another matter
        let_it_happen();
        counted_costs::begin(counted_costs::threads_e::this_one);
        act();
        let_it_happen();
        EXPECT_EQ(counted_costs::end(), counted_costs::costs_of(costs)) << costs;
    }
}

TEST_F(sweep_acts_test, a_quiet_look_at_the_settings_asks_three_times_for_the_file_and_no_memory) {
    const auto period = std::chrono::milliseconds(5);
    const config_watcher_t watcher(home.settings_file(), period, period);
    ASSERT_TRUE(log.wait_for("I Watching config file: " + home.settings_file().string()));
    counted_costs::begin(counted_costs::threads_e::all);
    const auto begin = std::chrono::steady_clock::now();
    simulator::fail_call_number(0);  // counts from here on
    ASSERT_TRUE(wait_until([] { return simulator::counted_calls("stat") >= 90; }));
    const auto looks = simulator::counted_calls("stat");
    const auto periods = (std::chrono::steady_clock::now() - begin) / period;
    EXPECT_LE(looks, 3 * (periods + 2));
    EXPECT_FALSE(counted_costs::end().contains("allocation"));
}
