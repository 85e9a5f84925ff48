#include "macos/hook_manager.h"

#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/hid/IOHIDManager.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/config/config.h"
#include "control/applications.h"
#include "control/desktop.h"
#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"
#include "macos/device_mappings.h"
#include "macos/hook_manager_impl.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace {

using simulator::device_description_t;
using simulator::device_id_t;
using simulator::event_origin_e;
using simulator::event_outcome_e;
using lines_t = std::vector<std::string>;

constexpr CGPoint over_mail{100, 100};
constexpr CGPoint over_photos{600, 100};
constexpr CGPoint over_nothing{900, 900};
constexpr std::uint32_t middle = 2;
constexpr std::uint32_t side_1 = 3;
constexpr std::uint32_t side_2 = 4;
constexpr std::uint16_t side_1_key = 33;

// Side button 1 copies, but cuts in Mail; side button 2 is bound in Mail only. The middle button
// does nothing, wheel steps undo and redo.
constexpr auto settings = R"({"appState": [
    {"type": 1, "appConfigs": {
        "Default": {"3": [{"action": 0}], "4": [{"action": 6}],
                    "8": [{"action": 15}], "9": [{"action": 16}]},
        "Mail": {"4": [{"action": 7}], "5": [{"action": 8}]}}},
    {"type": 2, "appConfigs": {"Default": {"10": [{"action": 6}]}}}]})";

const auto tap_failure = "CGEventTapCreate failed (Accessibility/Input Monitoring needed)";

device_description_t description_of(const device_mapping_t& mapping, bool has_keyboard = true) {
    device_description_t description;
    description.name = mapping.product_name;
    description.vendor_id = mapping.vendor_id;
    description.product_id = mapping.product_id;
    description.has_keyboard = has_keyboard;
    return description;
}

device_description_t foreign_mouse() {
    device_description_t description;
    description.name = "Foreign Mouse";
    description.vendor_id = 0xE7D4;
    description.product_id = 0x0001;
    return description;
}

void open_windows() {
    simulator::open_window(simulator::launch_application("Mail"), "Inbox", {{0, 0}, {400, 400}});
    simulator::open_window(simulator::launch_application("Photos"), "Album",
                           {{500, 0}, {300, 300}});
}

void let_it_happen() {
    EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
}

class hook_manager_test : public testing::Test {
  protected:
    hook_manager_test() {
        home.write_settings(settings);
        open_windows();
        mouse = simulator::connect(description_of(device_mappings[0]));
    }

    ~hook_manager_test() override {
        if (stops_in_order) {
            hooks.reset();
            EXPECT_EQ(simulator::objects_alive(), lines_t{});
            EXPECT_EQ(simulator::taps_alive(), 0U);
        }
    }

    void start() {
        config_t::instance();
        ASSERT_TRUE(log.wait_for("I Watching config file: " + home.settings_file().string()));
        hooks = std::make_unique<hook_manager_t>();
        log.forget();
    }

    // Starts, with the supported mouse in the hand and over Mail.
    void start_in_use() {
        start();
        move_to(over_mail);
        log.forget();
    }

    void move_to(CGPoint place) {
        simulator::move_to(mouse, place);
        let_it_happen();
    }
    void press(std::uint32_t button) {
        simulator::press(mouse, button);
        let_it_happen();
    }
    void release(std::uint32_t button) {
        simulator::release(mouse, button);
        let_it_happen();
    }
    void click(std::uint32_t button) {
        press(button);
        release(button);
    }

    // The fate of each hardware event, in order, and then forgets them: 'd'elivered or 's'wallowed.
    std::string fates() {
        std::string all;
        for (const auto& event : simulator::events()) {
            if (event.origin == event_origin_e::hardware) {
                all += event.outcome == event_outcome_e::delivered   ? 'd'
                       : event.outcome == event_outcome_e::swallowed ? 's'
                                                                     : '?';
            }
        }
        simulator::forget_events();
        return all;
    }

    // What has been performed up to an ordered stop: nothing that is queued is lost.
    lines_t lines_after_stop() {
        hooks.reset();
        return log.lines();
    }

    temporary_home_t home;
    log_capture_t log;
    device_id_t mouse = 0;
    std::unique_ptr<hook_manager_t> hooks;
    bool stops_in_order = true;
};

}  // namespace

TEST_F(hook_manager_test, release_runs_what_was_bound_at_press_time) {
    start_in_use();
    press(side_1);
    EXPECT_EQ(log.lines(), lines_t{});
    move_to(over_photos);
    release(side_1);
    EXPECT_EQ(fates(), "ss");
    EXPECT_TRUE(log.wait_for("I Action cut"));

    click(side_1);
    EXPECT_EQ(fates(), "ss");
    EXPECT_EQ(lines_after_stop(), (lines_t{"I Action cut", "I Action copy"}));
}

TEST_F(hook_manager_test, a_click_is_swallowed_or_passed_as_a_whole) {
    struct case_t {
        const char* what;
        CGPoint place;
        std::uint32_t button;
        const char* fates;
        lines_t lines;
    };
    start_in_use();
    for (const case_t& one : std::vector<case_t>{
             {"left", over_mail, 0, "dd", {}},
             {"right", over_mail, 1, "dd", {}},
             {"bound to do nothing", over_mail, middle, "ss", {"I Action do_nothing"}},
             {"the application's own", over_mail, side_1, "ss", {"I Action cut"}},
             {"only that application's", over_mail, side_2, "ss", {"I Action paste"}},
             {"not bound", over_photos, side_2, "dd", {"I Action default_action"}},
             {"no application", over_nothing, side_1, "ss", {"I Action copy"}},
             {"a further button", over_mail, 5, "dd", {}},
         }) {
        move_to(one.place);
        log.forget();
        simulator::forget_events();
        click(one.button);
        EXPECT_EQ(fates(), one.fates) << one.what;
        for (const std::string& line : one.lines) {
            EXPECT_TRUE(log.wait_for(line)) << one.what;
        }
        EXPECT_EQ(log.lines(), one.lines) << one.what;
    }
}

TEST_F(hook_manager_test, the_keys_of_the_action_reach_the_desktop_untouched) {
    start_in_use();
    click(side_1);
    ASSERT_TRUE(simulator::wait_for_posted(4));
    let_it_happen();
    std::vector<std::int64_t> codes;
    for (const auto& event : simulator::events()) {
        if (event.origin == event_origin_e::posted) {
            EXPECT_EQ(event.outcome, event_outcome_e::delivered);
            codes.push_back(event.key_code);
        }
    }
    EXPECT_EQ(codes, (std::vector<std::int64_t>{0x37, 0x07, 0x07, 0x37}));
}

TEST_F(hook_manager_test, a_helper_s_name_is_cut_before_the_look_up) {
    const pid_t helper = simulator::launch_application("Mail.app Photos");
    simulator::open_window(helper, "Helper", {{0, 500}, {100, 100}});
    start_in_use();
    move_to({50, 550});
    click(side_2);
    EXPECT_EQ(fates(), "ss");
    EXPECT_EQ(lines_after_stop(), lines_t{"I Action paste"});
}

TEST_F(hook_manager_test, drags_pass) {
    start_in_use();
    press(side_1);
    simulator::drag(mouse, side_1, 5, 5);
    let_it_happen();
    release(side_1);
    EXPECT_EQ(fates(), "sds");
}

TEST_F(hook_manager_test, each_horizontal_step_of_a_mouse_runs_its_action) {
    start_in_use();
    for (const std::int32_t step : {1, -1, 1}) {
        simulator::scroll(mouse, 0, step);
    }
    let_it_happen();
    EXPECT_EQ(fates(), "sss");

    simulator::scroll(mouse, 1, 0);
    simulator::scroll(mouse, -1, 1);
    simulator::scroll(mouse, {.point_axis_2 = 7, .continuous = true});
    simulator::scroll(mouse, {.point_axis_2 = 7, .phase = 2});
    simulator::scroll(mouse, {.point_axis_2 = 7, .momentum_phase = 2});
    let_it_happen();
    EXPECT_EQ(fates(), "ddddd");
    EXPECT_EQ(lines_after_stop(), (lines_t{"I Action redo", "I Action go_back", "I Action redo"}));
}

TEST_F(hook_manager_test, an_input_that_cannot_be_held_loses_its_press_only) {
    start();
    hook_manager_t::current_active_mouse = qlx_device_e::corvane;
    EXPECT_TRUE(
        hooks->process_event(input_value_e::corvane_extra_key, button_state_e::pressed, {}));
    EXPECT_FALSE(
        hooks->process_event(input_value_e::corvane_extra_key, button_state_e::released, {}));
    EXPECT_FALSE(
        hooks->process_event(input_value_e::x1_button, static_cast<button_state_e>(3), {}));
    EXPECT_EQ(lines_after_stop(), (lines_t{"E Input value 10 is out of range for storing action",
                                           "E Input value 10 is out of range for storing action",
                                           "I Action default_action"}));
}

TEST_F(hook_manager_test, a_release_without_its_press_runs_what_was_held_last) {
    start_in_use();
    release(side_1);
    EXPECT_EQ(fates(), "d");
    click(side_1);
    release(side_1);
    EXPECT_EQ(fates(), "sss");
    EXPECT_EQ(lines_after_stop(),
              (lines_t{"I Action default_action", "I Action cut", "I Action cut"}));
}

TEST_F(hook_manager_test, the_active_model_follows_the_last_device_in_use) {
    const device_id_t foreign = simulator::connect(foreign_mouse());
    start();
    click(side_1);
    EXPECT_EQ(fates(), "dd") << "nothing has moved yet";

    move_to(over_mail);
    move_to(over_photos);
    simulator::move(foreign, -5, 0);
    let_it_happen();
    click(side_1);
    EXPECT_EQ(fates(), "dd");
    move_to(over_photos);
    click(side_1);
    EXPECT_EQ(fates(), "ss");

    EXPECT_EQ(lines_after_stop(),
              (lines_t{"I Active device changed to 1 (vid=0xE7A1, pid=0x0011)",
                       "I Active device changed to -1 (vid=0xE7D4, pid=0x0001)",
                       "I Active device changed to 1 (vid=0xE7A1, pid=0x0011)", "I Action copy"}));
}

TEST_F(hook_manager_test, a_device_without_readable_numbers_is_not_supported) {
    device_description_t text = description_of(device_mappings[0], false);
    text.ids_are_text = true;
    device_description_t nameless = description_of(device_mappings[0], false);
    nameless.vendor_id.reset();
    start();
    for (const auto& [description, line] :
         std::vector<std::pair<device_description_t, std::string>>{
             {text, "I Active device changed to -1 (vid=0x0000, pid=0x0000)"},
             {nameless, "I Active device changed to -1 (vid=0x0000, pid=0x0011)"},
         }) {
        move_to(over_mail);
        log.forget();
        simulator::move(simulator::connect(description), 1, 0);
        let_it_happen();
        EXPECT_EQ(log.lines(), lines_t{line});
    }
}

TEST_F(hook_manager_test, removal_forgets_the_device_and_keeps_the_model) {
    start_in_use();
    simulator::disconnect(mouse);
    let_it_happen();
    EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::valtor_pro);
    // Whatever takes the place of the device that went is looked at afresh.
    for (int round = 0; round < 4; ++round) {
        const bool supported = round % 2 == 1;
        mouse = simulator::connect(supported ? description_of(device_mappings[4], false)
                                             : foreign_mouse());
        move_to(over_mail);
        EXPECT_EQ(hook_manager_t::current_active_mouse.load(),
                  supported ? qlx_device_e::valtor_pro : qlx_device_e::not_a_device);
        simulator::disconnect(mouse);
        let_it_happen();
    }
    EXPECT_EQ(log.lines().size(), 4U);
}

TEST_F(hook_manager_test, a_key_of_the_mouse_is_its_button) {
    start_in_use();
    simulator::press_key(mouse, side_1_key);
    let_it_happen();
    simulator::repeat_key(mouse, side_1_key);
    let_it_happen();
    simulator::release_key(mouse, side_1_key);
    let_it_happen();
    EXPECT_EQ(fates(), "sds") << "a repetition comes without a value of the device";

    simulator::press_key(mouse, 0);
    simulator::release_key(mouse, 0);
    let_it_happen();
    EXPECT_EQ(fates(), "dd") << "a key that is only a key";
    EXPECT_EQ(lines_after_stop(), lines_t{"I Action cut"});
}

TEST_F(hook_manager_test, a_key_of_the_mouse_makes_it_the_active_one) {
    const device_id_t foreign = simulator::connect(foreign_mouse());
    start();
    simulator::move(foreign, 1, 0);
    simulator::press_key(mouse, side_1_key);
    simulator::release_key(mouse, side_1_key);
    let_it_happen();
    EXPECT_EQ(fates(), "ss");
}

TEST_F(hook_manager_test, keys_of_other_keyboards_change_nothing) {
    device_description_t keyboard = foreign_mouse();
    keyboard.has_pointer = false;
    keyboard.has_keyboard = true;
    device_description_t combination = foreign_mouse();
    combination.has_keyboard = true;
    start_in_use();
    for (const auto& description : {keyboard, combination}) {
        const device_id_t other = simulator::connect(description);
        simulator::press_key(other, side_1_key);
        simulator::release_key(other, side_1_key);
        let_it_happen();
        EXPECT_EQ(fates(), "dd");
    }
    EXPECT_EQ(lines_after_stop(), lines_t{});
}

TEST_F(hook_manager_test, one_value_arms_for_one_key_event_also_for_the_daemon_s_own) {
    start_in_use();
    mac_impl_t capture(*hooks);
    const auto event =
        cpf_t<CGEventRef>::adopt(CGEventCreateKeyboardEvent(nullptr, side_1_key, true));
    const auto answer = [&](pid_t source) {
        CGEventSetIntegerValueField(event.get(), kCGEventSourceUnixProcessID, source);
        return mac_impl_t::event_tap_cb_keyboard(nullptr, kCGEventKeyDown, event.get(), &capture);
    };
    EXPECT_EQ(answer(0), event.get()) << "not armed";
    capture.keyboard_pending = true;
    EXPECT_EQ(answer(getpid()), event.get()) << "its own";
    EXPECT_FALSE(capture.keyboard_pending);
    EXPECT_EQ(answer(0), event.get()) << "the arming was used up";
    capture.keyboard_pending = true;
    EXPECT_EQ(answer(0), nullptr);
    capture.keyboard_pending = true;
    hook_manager_t::current_active_mouse = qlx_device_e::not_a_device;
    EXPECT_EQ(answer(0), event.get());
    EXPECT_FALSE(capture.keyboard_pending);
}

TEST_F(hook_manager_test, callbacks_without_a_context_or_a_value_do_nothing) {
    const auto event = cpf_t<CGEventRef>::adopt(CGEventCreateKeyboardEvent(nullptr, 0, true));
    EXPECT_EQ(mac_impl_t::event_tap_cb(nullptr, kCGEventOtherMouseDown, event.get(), nullptr),
              event.get());
    EXPECT_EQ(mac_impl_t::event_tap_cb_keyboard(nullptr, kCGEventTapDisabledByTimeout, event.get(),
                                                nullptr),
              event.get());
    start();
    mac_impl_t capture(*hooks);
    mac_impl_t::hid_input_cb(&capture, kIOReturnSuccess, nullptr, nullptr);
    mac_impl_t::hid_removal_cb(nullptr, kIOReturnSuccess, nullptr, nullptr);
    input_value_e input{};
    button_state_e state{};
    EXPECT_FALSE(map_scroll_mouse_only(nullptr, input, state));
    EXPECT_EQ(log.lines(), lines_t{});
}

TEST_F(hook_manager_test, the_named_target_goes_before_what_lies_under_the_pointer) {
    const auto event = cpf_t<CGEventRef>::adopt(
        CGEventCreateMouseEvent(nullptr, kCGEventLeftMouseDown, over_mail, kCGMouseButtonLeft));
    EXPECT_EQ(pid_from_event(event.get()), simulator::application_named("Mail"));
    CGEventSetIntegerValueField(event.get(), kCGEventTargetUnixProcessID, 4711);
    EXPECT_EQ(pid_from_event(event.get()), 4711);
    CGEventSetIntegerValueField(event.get(), kCGEventTargetUnixProcessID, -1);
    EXPECT_EQ(pid_from_event(event.get()), simulator::application_named("Mail"));
    for (const auto function :
         {"AXUIElementCreateSystemWide", "AXUIElementCopyElementAtPosition", "AXUIElementGetPid"}) {
        simulator::fail_next(function);
        EXPECT_EQ(pid_from_event(event.get()), std::nullopt) << function;
    }
    EXPECT_EQ(process_name_from_pid(*simulator::application_named("Mail")), "Mail");
    EXPECT_EQ(process_name_from_pid(4711), std::nullopt);
}

TEST_F(hook_manager_test, settings_that_cannot_be_read_let_the_event_pass) {
    home.write_settings(R"({"appState": [{"type": "one"}]})");
    hooks = std::make_unique<hook_manager_t>();
    move_to(over_mail);
    press(side_1);
    EXPECT_EQ(fates(), "d");
    const lines_t lines = log.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(
        lines.back(),
        "E Event tap callback threw: [json.exception.type_error.302] type must be number, but "
        "is string");
}

TEST_F(hook_manager_test, stopping_performs_what_is_queued_and_frees_everything) {
    start();
    for (int round = 1; round <= 2; ++round) {
        hooks.reset();
        hooks = std::make_unique<hook_manager_t>();
        move_to(over_mail);
        log.forget();
        EXPECT_EQ(simulator::taps_enabled(), 2U);
        EXPECT_EQ(hook_mng_access, hooks.get());
        for (int clicks = 0; clicks < 20; ++clicks) {
            click(side_1);
        }
        lines_after_stop();
        EXPECT_EQ(log.count("I Action cut"), 20U);
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(simulator::taps_alive(), 0U);
        EXPECT_EQ(hook_mng_access, nullptr);
        simulator::forget_events();
        click(side_1);
        EXPECT_EQ(fates(), "dd");
    }
}

TEST_F(hook_manager_test, without_a_hid_manager_nothing_is_intercepted) {
    simulator::fail_next("IOHIDManagerCreate");
    hooks = std::make_unique<hook_manager_t>();
    EXPECT_TRUE(log.has("E IOHIDManagerCreate failed"));
    move_to(over_mail);
    click(side_1);
    EXPECT_EQ(fates(), "dd");
}

TEST_F(hook_manager_test, without_the_mouse_tap_the_keys_still_work) {
    for (const auto function : {"CGEventTapCreate", "CFMachPortCreateRunLoopSource"}) {
        log.forget();
        simulator::fail_next(function);
        hooks = std::make_unique<hook_manager_t>();
        EXPECT_TRUE(log.has(std::string("E ") + tap_failure)) << function;
        EXPECT_EQ(simulator::taps_alive(), 1U) << function;
        move_to(over_mail);
        simulator::forget_events();
        click(side_1);
        simulator::press_key(mouse, side_1_key);
        simulator::release_key(mouse, side_1_key);
        let_it_happen();
        EXPECT_EQ(fates(), "ddss") << function;
        hooks.reset();
        EXPECT_EQ(simulator::objects_alive(), lines_t{}) << function;
    }
}

TEST_F(hook_manager_test, a_missing_permission_fails_the_construction) {
    struct case_t {
        simulator::permission_e permission;
        std::string what;
        std::string line;
    };
    stops_in_order = false;  // what the system had handed out goes with the process
    for (const case_t& one : std::vector<case_t>{
             {simulator::permission_e::input_monitoring, "IOHIDManagerOpen failed",
              "E IOHIDManagerOpen failed: " + std::to_string(kIOReturnNotPermitted) +
                  ", Check the input system permissions"},
             {simulator::permission_e::accessibility, tap_failure, std::string("E ") + tap_failure},
         }) {
        log.forget();
        simulator::revoke(one.permission);
        try {
            const hook_manager_t failing;
            ADD_FAILURE() << one.what;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), one.what);
        }
        EXPECT_EQ(log.lines(), lines_t{one.line});
        EXPECT_EQ(hook_mng_access, nullptr);
        simulator::grant(one.permission);

        // What is left of the attempt stays quiet, whatever happens on the desktop.
        move_to(over_mail);
        click(side_1);
        EXPECT_EQ(fates(), "dd");
    }
    EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::not_a_device);
}

TEST_F(hook_manager_test, an_abandoned_capture_lets_everything_pass) {
    stops_in_order = false;
    start_in_use();
    auto capture = std::make_unique<mac_impl_t>(*hooks);
    EXPECT_FALSE(capture->can_be_called_back());
    capture->setup_event_tap();
    capture->abandon();
    EXPECT_TRUE(capture->can_be_called_back());
    hooks.reset();
    click(side_1);
    EXPECT_EQ(fates(), "dd");
    static_cast<void>(capture.release());
}

namespace {

// Runs `daemon` as a process with a log file in `home`; its exit status, or -1.
int exit_status_of(const std::function<void()>& daemon) {
    const pid_t child = fork();
    if (child == 0) {
        utils::init_log("QlxDaemon", utils::sink_e::file);
        daemon();
        std::_Exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The desktop loses its patience with the tap that handles what `hand` does.
void lose_patience(const std::function<void(device_id_t)>& hand) {
    using namespace std::chrono_literals;
    open_windows();
    const device_id_t mouse = simulator::connect(description_of(device_mappings[0]));
    const hook_manager_t hooks;
    simulator::move_to(mouse, over_mail);
    simulator::settle(simulator::run_loop_e::run);
    simulator::set_tap_patience(50ms);
    simulator::hold_next_tap_callback();
    hand(mouse);
    std::thread([] {
        std::this_thread::sleep_for(500ms);
        simulator::let_tap_callbacks_go();
    }).detach();
    simulator::settle(simulator::run_loop_e::run);
}

}  // namespace

// These start before anything else has made a thread: the daemon of each is a process of its own.
TEST(disabled_tap, ends_the_process_at_once_with_the_warning_in_the_log_file) {
    struct case_t {
        const char* what;
        std::function<void()> daemon;
        std::vector<std::string> warnings;  // one of them
    };
    const std::string mouse_warning = "Event tap disabled, exiting…";
    const std::string keyboard_warning = "Event tap keyboard disabled, exiting…";
    for (const case_t& one : std::vector<case_t>{
             {"slow mouse tap",
              [] { lose_patience([](device_id_t mouse) { simulator::press(mouse, side_1); }); },
              {mouse_warning}},
             {"slow keyboard tap",
              [] {
                  lose_patience([](device_id_t mouse) { simulator::press_key(mouse, side_1_key); });
              },
              {keyboard_warning}},
             {"permission revoked",
              [] {
                  const hook_manager_t hooks;
                  simulator::revoke(simulator::permission_e::accessibility);
                  simulator::press(simulator::connect(description_of(device_mappings[0])), side_1);
                  simulator::settle(simulator::run_loop_e::run);
              },
              {mouse_warning}},
         }) {
        const temporary_home_t home;
        home.write_settings(settings);
        EXPECT_EQ(exit_status_of(one.daemon), 77) << one.what;
        std::ifstream file(home.log_file());
        const std::string log(std::istreambuf_iterator<char>(file), {});
        EXPECT_TRUE(std::any_of(
            one.warnings.begin(), one.warnings.end(),
            [&](const std::string& warning) {
                return log.ends_with(warning + "\n") &&
                       log.find("[W] [app] [QlxDaemon:hook_manager_taps.cpp:") != std::string::npos;
            }))
            << one.what << "\n"
            << log;
    }
}
