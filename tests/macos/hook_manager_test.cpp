#include "macos/hook_manager.h"

#include <ApplicationServices/ApplicationServices.h>

#include "common/config/config.h"
#include "macos/hook_manager_impl.h"
#include "support/log_capture.h"
#include "support/supported_mouse.h"
#include "support/test.h"

namespace {

using simulator::device_id_t;

constexpr CGPoint over_mail{100, 100};
constexpr CGPoint over_photos{600, 100};
constexpr CGPoint over_helper{50, 550};
constexpr CGPoint over_cut{250, 550};      // "Mail" would stand in its name's second half
constexpr CGPoint over_foreign{450, 550};  // another user's Mail
constexpr std::uint32_t middle = 2;
constexpr std::uint32_t side_1 = 3;
constexpr std::uint32_t side_2 = 4;
constexpr std::uint16_t side_1_key = 33;

// Side button 1 copies, but cuts in Mail; side button 2 and the wheel are bound in Mail only. The
// middle button does nothing, nor does the wheel to the left.
constexpr auto settings = R"({"appState": [
    {"type": 1, "appConfigs": {
        "Default": {"3": [{"action": 0}], "4": [{"action": 6}]},
        "Mail": {"4": [{"action": 7}], "5": [{"action": 8}],
                 "8": [{"action": 0}], "9": [{"action": 6}]}}},
    {"type": 2, "appConfigs": {"Default": {"4": [{"action": 8}], "10": [{"action": 6}]}}}]})";

const std::string changed_to = ", I Active device changed to ";

const std::string tap_failure = "CGEventTapCreate failed (Accessibility/Input Monitoring needed)";

void let_it_happen() {
    EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
}

class hook_manager_test : public testing::Test {
  protected:
    hook_manager_test() {
        home.write_settings(settings);
        using simulator::told_name_e;
        const auto open = [](const char* process, CGPoint place, told_name_e told) {
            const CGRect frame{{place.x - 50, place.y - 50}, {100, 100}};
            simulator::open_window(simulator::launch_application(process, told), process, frame);
        };
        open("Mail", over_mail, told_name_e::registered);
        open("Photos", over_photos, told_name_e::registered);
        open("Mail.app Photos.app", over_helper, told_name_e::registered);
        open("Assistant of the Mail", over_cut, told_name_e::cut);
        open("Mail", over_foreign, told_name_e::none);
        mouse = connect_supported(0, simulator::key_page_pairs);
    }

    ~hook_manager_test() override {
        if (hooks != nullptr) {
            stop();
        }
    }

    // Starts, with the supported mouse in the hand and over Mail.
    void start() {
        config_t::instance();
        if (!log.wait_for("I Watching config file: " + home.settings_file().string())) {
            throw std::runtime_error("the settings are not watched");
        }
        hooks = std::make_unique<hook_manager_t>();
        move_to(over_mail);
        log.forget();
    }

    // The hand does one thing, as the simulator names it.
    template <typename... with_t>
    static void hand(auto does, with_t... with) {
        does(with...);
        let_it_happen();
    }
    void move_to(CGPoint place) { hand(simulator::move_to, mouse, place); }
    void press(std::uint32_t button) { hand(simulator::press, mouse, button); }
    void release(std::uint32_t button) { hand(simulator::release, mouse, button); }
    void click(std::uint32_t button) {
        press(button);
        release(button);
    }
    static void tap_key(device_id_t device, std::uint16_t key) {
        hand(simulator::press_key, device, key);
        hand(simulator::release_key, device, key);
    }

    // The fate of each hardware event, in order, and then forgets them: 'd'elivered, 's'wallowed,
    // or '?' while it is under way.
    static std::string fates() {
        std::string all;
        for (const auto& event : simulator::events()) {
            if (event.origin == simulator::event_origin_e::hardware) {
                all += "?ds"[static_cast<int>(event.outcome)];
            }
        }
        simulator::forget_events();
        return all;
    }

    // The fates, and then the lines of the log when all that is queued has been performed.
    std::string outcome() {
        hooks->push_action(shortcut_t{});  // does nothing but say so
        EXPECT_TRUE(log.wait_for("E Invalid shortcut action: no inputs"));
        std::string all = fates();
        for (const std::string& line : log.lines()) {
            if (line.find("shortcut") == std::string::npos) {
                all += ", " + line;
            }
        }
        log.forget();
        return all;
    }

    void stop() {
        hooks.reset();
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(hook_mng_access, nullptr);
    }

    temporary_home_t home;
    log_capture_t log;
    device_id_t mouse = 0;
    std::unique_ptr<hook_manager_t> hooks;
};

}  // namespace

TEST_F(hook_manager_test, a_click_is_swallowed_or_passed_as_a_whole) {
    start();
    for (const auto& [what, place, button, expected] :
         std::vector<std::tuple<std::string, CGPoint, std::uint32_t, std::string>>{
             {"left", over_mail, 0, "dd"},
             {"right", over_mail, 1, "dd"},
             {"bound to do nothing", over_mail, middle, "ss, I Action do_nothing"},
             {"the application's own", over_mail, side_1, "ss, I Action cut"},
             {"only that application's", over_mail, side_2, "ss, I Action paste"},
             {"a process of its", over_helper, side_2, "ss, I Action paste"},
             {"not bound", over_photos, side_2, "dd, I Action default_action"},
             {"no application", {900, 900}, side_1, "ss, I Action copy"},
             {"cut name", over_cut, side_1, "ss, I Action copy"},
             {"no name to be had", over_foreign, side_1, "ss, I Action copy"},
             {"a further button", over_mail, 5, "dd"},
         }) {
        move_to(place);
        click(button);
        EXPECT_EQ(outcome(), expected) << what;
    }
    simulator::set_tap_patience(std::chrono::milliseconds(700));
    simulator::hang_application(simulator::application_named("Mail.app Photos.app").value());
    move_to(over_helper);
    click(side_1);
    EXPECT_EQ(outcome(), "ss, I Action copy") << "an application that hangs";
}

TEST_F(hook_manager_test, a_step_of_the_horizontal_wheel_is_one_along_that_axis_alone) {
    start();
    for (const auto& [fields, expected] :
         std::vector<std::pair<simulator::scroll_fields_t, std::string>>{
             {{.line_axis_2 = 1}, "s, I Action copy"},
             {{.line_axis_2 = -1}, "s, I Action do_nothing"},
             {{.point_axis_2 = 10}, "s, I Action copy"},
             {{.line_axis_2 = -1, .point_axis_2 = 10}, "s, I Action copy"},
             {{.line_axis_1 = 1}, "d"},
             {{.line_axis_1 = 1, .point_axis_2 = 10}, "d"},
             {{.line_axis_2 = 1, .point_axis_1 = -10}, "d"},
             {{.line_axis_2 = 1, .continuous = true}, "d"},
             {{.line_axis_2 = 1, .phase = 2}, "d"},
             {{.line_axis_2 = 1, .momentum_phase = 2}, "d"},
         }) {
        simulator::scroll(mouse, fields);
        let_it_happen();
        EXPECT_EQ(outcome(), expected) << testing::PrintToString(fields);
    }
}

TEST_F(hook_manager_test, a_release_runs_what_was_held_last_for_its_model_and_input) {
    start();
    release(side_1);
    EXPECT_EQ(outcome(), "d, I Action default_action") << "nothing held yet";
    press(side_1);
    hand(simulator::drag, mouse, side_1, 5, 5);
    move_to(over_photos);
    EXPECT_EQ(outcome(), "sd");
    release(side_1);
    EXPECT_TRUE(simulator::wait_for_posted(4)) << "the keys of the action";
    release(side_1);
    EXPECT_EQ(outcome(), "ss, I Action cut, I Action cut");

    using input = input_value_e;
    using model = qlx_device_e;
    using state = button_state_e;
    const std::string refused = ", E Input value 10 is out of range for storing action";
    for (const auto& [device, what, half, expected] :
         std::vector<std::tuple<model, input, state, std::string>>{
             {model::corvane, input::x1_button, state::pressed, "s"},
             {model::valtor_pro, input::x1_button, state::released, "s, I Action cut"},
             {model::corvane, input::x1_button, state::released, "s, I Action paste"},
             {model::corvane, input::corvane_extra_key, state::pressed, "s" + refused},
             {model::corvane, input::corvane_extra_key, state::released,
              "d" + refused + ", I Action default_action"},
             {model::corvane, input::x1_button, static_cast<state>(3), "d"},
         }) {
        hook_manager_t::current_active_mouse = device;
        const bool swallowed = hooks->process_event(what, half, std::nullopt);
        EXPECT_EQ((swallowed ? "s" : "d") + outcome(), expected);
    }
}

TEST_F(hook_manager_test, the_active_model_is_that_of_the_device_that_moved_last) {
    start();
    mac_impl_t capture(*hooks);
    capture.setup_hid_manager();
    move_to(over_mail);
    for (const auto& [description, identity] :
         std::vector<std::pair<simulator::device_description_t, std::string>>{
             {{"Foreign", 0xE7D4, 0x0001}, "vid=0xE7D4, pid=0x0001"},
             {{"Text", 0xE7A1, 0x0011, true}, "vid=0x0000, pid=0x0000"},
             {{"Nameless", std::nullopt, 0x0011}, "vid=0x0000, pid=0x0011"},
         }) {
        const device_id_t other = simulator::connect(description);
        let_it_happen();
        hand(simulator::press, other, side_1);
        hand(simulator::disconnect, other);
        EXPECT_EQ(outcome(), "d" + changed_to + "-1 (" + identity + ")");

        // Whatever takes the place of the device that went is looked at afresh.
        const device_id_t next = simulator::connect({"Bluetooth", 0xE7C3, 0x0021});
        let_it_happen();
        hand(simulator::move, next, 1, 0);
        hand(simulator::disconnect, next);
        EXPECT_EQ(outcome(), changed_to + "1 (vid=0xE7C3, pid=0x0021)");
        EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::valtor_pro);
    }
    EXPECT_EQ(capture.devices.size(), 1U) << "those that went are forgotten";
}

TEST_F(hook_manager_test, a_key_value_makes_the_mouse_the_active_one_and_the_next_key_its_button) {
    const device_id_t foreign = simulator::connect(
        {.name = "Receiver", .keyboard = simulator::keyboard_pairs, .combined = true});
    start();
    hand(simulator::move, foreign, 1, 0);
    EXPECT_EQ(outcome(), changed_to + "-1 (vid=0x0000, pid=0x0000)");
    hand(simulator::press_key, mouse, side_1_key);
    hand(simulator::repeat_key, mouse, side_1_key);
    hand(simulator::release_key, mouse, side_1_key);
    EXPECT_EQ(outcome(), "sds" + changed_to + "1 (vid=0xE7A1, pid=0x0011), I Action cut")
        << "a repetition comes without a value of the device";
    tap_key(foreign, side_1_key);
    EXPECT_EQ(outcome(), "dd") << "its values arrive and count for nothing";
    hand(simulator::press_key, mouse, 0);
    hand(simulator::repeat_key, mouse, side_1_key);
    EXPECT_EQ(outcome(), "dd") << "a key that is a key uses up the arming, too";
    hand(simulator::burst, [this] {
        simulator::press_key(mouse, side_1_key);
        simulator::release_key(mouse, side_1_key);
    });
    EXPECT_EQ(outcome(), "sd") << "two values that wait together arm the tap once";

    // A key of the daemon's own.
    mac_impl_t capture(*hooks);
    const auto event =
        cpf_t<CGEventRef>::adopt(CGEventCreateKeyboardEvent(nullptr, side_1_key, true));
    for (const auto& [source, armed, swallowed] :
         {std::tuple{0, true, true}, {getpid(), true, false}, {0, false, false}}) {
        capture.keyboard_pending = armed;
        CGEventSetIntegerValueField(event.get(), kCGEventSourceUnixProcessID, source);
        EXPECT_EQ(
            mac_impl_t::event_tap_cb_keyboard(nullptr, kCGEventKeyDown, event.get(), &capture),
            swallowed ? nullptr : event.get());
        EXPECT_FALSE(capture.keyboard_pending);
    }
}

TEST_F(hook_manager_test, the_named_target_goes_before_what_lies_under_the_pointer) {
    start();
    const auto event = cpf_t<CGEventRef>::adopt(
        CGEventCreateMouseEvent(nullptr, kCGEventLeftMouseDown, over_mail, kCGMouseButtonLeft));
    const auto mail = simulator::application_named("Mail");
    for (const auto& [target, found] : {std::pair(0, mail), {4711, 4711}, {-1, mail}}) {
        CGEventSetIntegerValueField(event.get(), kCGEventTargetUnixProcessID, target);
        EXPECT_EQ(pid_from_event(event.get()), found);
    }
    for (const auto function :
         {"AXUIElementCreateSystemWide", "AXUIElementCopyElementAtPosition", "AXUIElementGetPid"}) {
        simulator::fail_next(function);
        EXPECT_EQ(pid_from_event(event.get()), std::nullopt) << function;
    }
    EXPECT_EQ(process_name_from_pid(*simulator::application_named("Mail.app Photos.app")), "Mail");
    EXPECT_EQ(process_name_from_pid(4711), std::nullopt);
}

TEST_F(hook_manager_test, settings_that_cannot_be_read_let_the_event_pass) {
    home.write_settings(R"({"appState": [{"type": "one"}]})");
    hooks = std::make_unique<hook_manager_t>();
    move_to(over_mail);
    press(side_1);
    tap_key(mouse, side_1_key);
    EXPECT_EQ(fates(), "ddd");
    EXPECT_EQ(log.count_beginning("E Event tap callback threw: [json.exception.type_error"), 2U);
}

TEST_F(hook_manager_test, stopping_performs_what_is_queued_and_then_takes_the_capture_down) {
    std::atomic<bool> stopping = false;
    log.hold("I Action do_nothing", [&, looks = 20]() mutable { return stopping && --looks < 0; });
    start();
    EXPECT_EQ(hook_mng_access, hooks.get());
    click(middle);
    click(middle);
    simulator::forget_events();
    // Each call with the objects that are owned and the taps that are enabled after it.
    lines_t expected({"I CGEventTapEnable 5 1", "I CFRunLoopRemoveSource 5 1",
                      "I CFMachPortInvalidate 5 1", "I CFRunLoopRunInMode 5 1", "I CFRelease 4 1",
                      "I CFRelease 3 1", "I CGEventTapEnable 3 0", "I CFRunLoopRemoveSource 3 0",
                      "I CFMachPortInvalidate 3 0", "I CFRunLoopRunInMode 3 0", "I CFRelease 2 0",
                      "I CFRelease 1 0", "I IOHIDManagerUnscheduleFromRunLoop 1 0",
                      "I IOHIDManagerClose 1 0", "I CFRelease 0 0"});
    for (const std::string& line : expected) {
        const std::string function = line.substr(2, line.find(' ', 2) - 2);
        simulator::after_next(function, [function] {
            QLX_LOG_INFO("{} {} {}", function, simulator::objects_alive().size(),
                         simulator::taps_enabled());
        });
    }
    expected.insert(expected.begin(), 2, "I Action do_nothing");
    // Both wait for their tap; the keyboard's, which stands longer, gets to its own.
    simulator::set_tap_patience(std::chrono::seconds(30));
    simulator::burst([this] {
        simulator::scroll(mouse, {.line_axis_2 = 1});
        simulator::repeat_key(mouse, side_1_key);
    });
    EXPECT_TRUE(wait_until([] { return simulator::events().size() == 2; }));
    stopping = true;
    stop();
    EXPECT_EQ(log.lines(), expected);
    let_it_happen();
    EXPECT_EQ(fates(), "dd");
}

TEST_F(hook_manager_test, a_part_that_cannot_be_set_up_is_logged_and_the_rest_works) {
    // With the taps that are left, and the fates of a click and of a key of the mouse.
    for (const auto& [function, line, taps, expected] :
         std::vector<std::tuple<std::string, std::string, std::size_t, std::string>>{
             {"IOHIDManagerCreate", "E IOHIDManagerCreate failed", 2, "dddd"},
             {"CGEventTapCreate", "E " + tap_failure, 1, "ddss"},
             {"CFMachPortCreateRunLoopSource", "E " + tap_failure, 1, "ddss"},
         }) {
        log.forget();
        simulator::fail_next(function);
        hooks = std::make_unique<hook_manager_t>();
        EXPECT_TRUE(log.has(line)) << function;
        EXPECT_EQ(simulator::taps_alive(), taps);
        move_to(over_mail);
        click(side_1);
        tap_key(mouse, side_1_key);
        EXPECT_EQ(fates(), expected) << function;
        stop();
    }
}

TEST_F(hook_manager_test, what_is_missing_fails_the_construction_and_holds_no_event_up) {
    using simulator::permission_e;
    simulator::set_tap_patience(std::chrono::seconds(30));
    for (const auto& [refuse, what, lines] :
         std::vector<std::tuple<void (*)(), std::string, lines_t>>{
             {[] { simulator::revoke(permission_e::input_monitoring); },
              "IOHIDManagerOpen failed",
              {"E IOHIDManagerOpen failed: -536870174, Check the input system permissions"}},
             {[] { simulator::revoke(permission_e::accessibility); },
              tap_failure,
              {"E " + tap_failure}},
             {[] { simulator::fail_call("CGEventTapCreate", 2); }, tap_failure, {}},
         }) {
        log.forget();
        refuse();
        EXPECT_EQ(error_text([] { const hook_manager_t failing; }), what);
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(hook_mng_access, nullptr);
        simulator::grant(permission_e::input_monitoring);
        simulator::grant(permission_e::accessibility);

        // What is left of the attempt holds no event up, with nobody there to run the run loop.
        simulator::press(mouse, side_1);
        EXPECT_TRUE(wait_until([] {
            const auto all = simulator::events();
            return !all.empty() && all[0].outcome != simulator::event_outcome_e::under_way;
        }));
        EXPECT_EQ(fates(), "d");
        move_to(over_mail);
    }
    EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::not_a_device);
}

// The daemon is a process of its own, which starts before anything else has made a thread.
TEST_F(hook_manager_test, a_keyboard_tap_that_is_disabled_ends_the_process_with_a_warning) {
    const auto daemon = [this] {
        utils::init_log("QlxDaemon", utils::sink_e::file);
        hooks = std::make_unique<hook_manager_t>();
        move_to(over_mail);
        simulator::set_tap_patience(std::chrono::milliseconds(50));
        simulator::hold_next_tap_callback();
        hand(simulator::press_key, mouse, side_1_key);
    };
    EXPECT_EXIT(daemon(), testing::ExitedWithCode(77), "");
    const std::string file = temporary_home_t::content_of(home.log_file());
    EXPECT_NE(file.find("[W] [app] [QlxDaemon:hook_manager_taps.cpp:"), std::string::npos);
    EXPECT_TRUE(file.ends_with("Event tap keyboard disabled, exiting…\n")) << file;
}
