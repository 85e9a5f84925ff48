#include "macos/hook_manager.h"

#include <ApplicationServices/ApplicationServices.h>
#include <IOKit/hid/IOHIDManager.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "common/config/config.h"
#include "control/applications.h"
#include "control/calls.h"
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
constexpr CGPoint over_helper{50, 550};
constexpr CGPoint over_cut{250, 550};      // "Mail" would stand in its name's second half
constexpr CGPoint over_foreign{450, 550};  // another user's Mail
constexpr CGPoint over_nothing{900, 900};
constexpr std::uint32_t middle = 2;
constexpr std::uint32_t side_1 = 3;
constexpr std::uint32_t side_2 = 4;
constexpr std::uint16_t side_1_key = 33;

// Side button 1 copies, but cuts in Mail; side button 2 is bound in Mail only. The middle button
// does nothing.
constexpr auto settings = R"({"appState": [
    {"type": 1, "appConfigs": {
        "Default": {"3": [{"action": 0}], "4": [{"action": 6}]},
        "Mail": {"4": [{"action": 7}], "5": [{"action": 8}]}}},
    {"type": 2, "appConfigs": {"Default": {"10": [{"action": 6}]}}}]})";

const std::string tap_failure = "CGEventTapCreate failed (Accessibility/Input Monitoring needed)";

device_description_t description_of(const device_mapping_t& mapping) {
    device_description_t description;
    description.name = mapping.product_name;
    description.vendor_id = mapping.vendor_id;
    description.product_id = mapping.product_id;
    description.keyboard = simulator::key_page_pairs;
    return description;
}

device_description_t foreign_mouse() {
    device_description_t description;
    description.name = "Foreign Mouse";
    description.vendor_id = 0xE7D4;
    description.product_id = 0x0001;
    return description;
}

void let_it_happen() {
    EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
}

class hook_manager_test : public testing::Test {
  protected:
    hook_manager_test() {
        home.write_settings(settings);
        using simulator::told_name_e;
        const auto open = [](const char* process, CGPoint place,
                             told_name_e told = told_name_e::registered) {
            const pid_t application = simulator::launch_application(process, told);
            const CGRect frame{{place.x - 50, place.y - 50}, {100, 100}};
            simulator::open_window(application, process, frame);
        };
        open("Mail", over_mail);
        open("Photos", over_photos);
        open("Mail.app Photos", over_helper);
        open("Assistant of the Mail", over_cut, told_name_e::cut);
        open("Mail", over_foreign, told_name_e::none);
        mouse = simulator::connect(description_of(device_mappings[0]));
    }

    ~hook_manager_test() override {
        if (stops_in_order) {
            stop();
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
    static void tap_key(device_id_t device, std::uint16_t key) {
        simulator::press_key(device, key);
        simulator::release_key(device, key);
        let_it_happen();
    }

    // The fate of each hardware event, in order, and then forgets them: 'd'elivered or 's'wallowed.
    static std::string fates() {
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

    // What has been performed up to an ordered stop: nothing that is queued is lost, nothing owned.
    lines_t stop() {
        hooks.reset();
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(simulator::taps_alive(), 0U);
        EXPECT_EQ(hook_mng_access, nullptr);
        return log.lines();
    }

    temporary_home_t home;
    log_capture_t log;
    device_id_t mouse = 0;
    std::unique_ptr<hook_manager_t> hooks;
    bool stops_in_order = true;
};

}  // namespace

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
             {"a process of its", over_helper, side_2, "ss", {"I Action paste"}},
             {"not bound", over_photos, side_2, "dd", {"I Action default_action"}},
             {"no application", over_nothing, side_1, "ss", {"I Action copy"}},
             {"cut name", over_cut, side_1, "ss", {"I Action copy"}},
             {"no name to be had", over_foreign, side_1, "ss", {"I Action copy"}},
             {"a further button", over_mail, 5, "dd", {}},
         }) {
        move_to(one.place);
        simulator::forget_events();
        log.forget();
        click(one.button);
        EXPECT_EQ(fates(), one.fates) << one.what;
        for (const std::string& line : one.lines) {
            EXPECT_TRUE(log.wait_for(line)) << one.what;
        }
        EXPECT_EQ(log.lines(), one.lines) << one.what;
    }
}

TEST_F(hook_manager_test, a_release_runs_what_was_held_last_and_its_keys_pass) {
    start_in_use();
    release(side_1);
    EXPECT_EQ(fates(), "d") << "nothing held yet";
    press(side_1);
    simulator::drag(mouse, side_1, 5, 5);
    let_it_happen();
    release(side_1);
    ASSERT_TRUE(simulator::wait_for_posted(4));
    let_it_happen();
    for (const auto& event : simulator::events()) {
        EXPECT_TRUE(event.origin == event_origin_e::hardware ||
                    event.outcome == event_outcome_e::delivered);
    }
    EXPECT_EQ(fates(), "sds");
    release(side_1);
    EXPECT_EQ(fates(), "s");
    EXPECT_EQ(stop(), (lines_t{"I Action default_action", "I Action cut", "I Action cut"}));
}

TEST_F(hook_manager_test, the_active_model_is_that_of_the_device_that_moved_last) {
    device_description_t text = description_of(device_mappings[0]);
    text.ids_are_text = true;
    device_description_t nameless = description_of(device_mappings[0]);
    nameless.vendor_id.reset();
    start();
    click(5);
    EXPECT_EQ(fates(), "dd") << "not taken, but its report tells of the mouse";
    move_to(over_mail);
    EXPECT_EQ(log.lines(), lines_t{"I Active device changed to 1 (vid=0xE7A1, pid=0x0011)"});
    for (const auto& [description, line] :
         std::vector<std::pair<device_description_t, std::string>>{
             {foreign_mouse(), "I Active device changed to -1 (vid=0xE7D4, pid=0x0001)"},
             {text, "I Active device changed to -1 (vid=0x0000, pid=0x0000)"},
             {nameless, "I Active device changed to -1 (vid=0x0000, pid=0x0011)"},
         }) {
        log.forget();
        const device_id_t other = simulator::connect(description);
        let_it_happen();
        simulator::press(other, side_1);
        let_it_happen();
        EXPECT_EQ(fates(), "d");
        simulator::disconnect(other);
        let_it_happen();
        EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::not_a_device);
        EXPECT_EQ(log.lines(), lines_t{line});

        // Whatever takes the place of the device that went is looked at afresh.
        const device_id_t next = simulator::connect(description_of(device_mappings[4]));
        let_it_happen();
        simulator::move(next, 1, 0);
        let_it_happen();
        simulator::disconnect(next);
        let_it_happen();
        EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::valtor_pro)
            << "the model stays when its device goes";
    }
}

TEST_F(hook_manager_test, a_key_of_the_mouse_is_its_button_and_makes_it_the_active_one) {
    device_description_t receiver = foreign_mouse();
    receiver.keyboard = simulator::keyboard_pairs;
    receiver.combined = true;
    const device_id_t foreign = simulator::connect(receiver);
    start_in_use();
    simulator::move(foreign, 1, 0);
    simulator::press_key(mouse, side_1_key);
    let_it_happen();
    simulator::repeat_key(mouse, side_1_key);
    let_it_happen();
    simulator::release_key(mouse, side_1_key);
    let_it_happen();
    EXPECT_EQ(fates(), "sds") << "a repetition comes without a value of the device";
    tap_key(foreign, side_1_key);
    EXPECT_EQ(fates(), "dd") << "its values arrive and count for nothing";
    EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::valtor_pro);
    EXPECT_TRUE(log.wait_for("I Action cut"));
    simulator::burst([this] {
        simulator::press_key(mouse, side_1_key);
        simulator::release_key(mouse, side_1_key);
    });
    let_it_happen();
    EXPECT_EQ(fates(), "sd") << "two values that wait together arm the tap once";
}

TEST_F(hook_manager_test, over_an_application_that_hangs_the_default_binding_counts) {
    start_in_use();
    simulator::set_tap_patience(std::chrono::milliseconds(700));
    const pid_t mail = simulator::application_named("Mail").value();
    simulator::hang_application(mail);
    click(side_1);
    simulator::wake_application(mail);
    click(side_1);
    EXPECT_EQ(fates(), "ssss");
    EXPECT_EQ(simulator::taps_enabled(), 2U);
    EXPECT_EQ(stop(), (lines_t{"I Action copy", "I Action cut"}));
}

TEST_F(hook_manager_test, a_key_of_the_daemon_s_own_passes_and_uses_up_the_arming) {
    start_in_use();
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
    EXPECT_EQ(process_name_from_pid(4711), std::nullopt);
}

TEST_F(hook_manager_test, settings_that_cannot_be_read_let_the_event_pass) {
    home.write_settings(R"({"appState": [{"type": "one"}]})");
    hooks = std::make_unique<hook_manager_t>();
    move_to(over_mail);
    press(side_1);
    EXPECT_EQ(fates(), "d");
    EXPECT_TRUE(
        log.has("E Event tap callback threw: [json.exception.type_error.302] type must be number, "
                "but is string"));
}

TEST_F(hook_manager_test, stopping_performs_what_is_queued_and_frees_everything) {
    start_in_use();
    EXPECT_EQ(simulator::taps_enabled(), 2U);
    EXPECT_EQ(hook_mng_access, hooks.get());
    for (int clicks = 0; clicks < 20; ++clicks) {
        click(side_1);
    }
    EXPECT_EQ(stop(), lines_t(20, "I Action cut"));
    simulator::forget_events();
    click(side_1);
    EXPECT_EQ(fates(), "dd");
}

TEST_F(hook_manager_test, a_part_that_cannot_be_set_up_is_logged_and_the_rest_works) {
    struct case_t {
        const char* function;
        std::string line;
        std::size_t taps;
        const char* fates;  // of a click and of a key of the mouse
    };
    for (const case_t& one : std::vector<case_t>{
             {"IOHIDManagerCreate", "E IOHIDManagerCreate failed", 2, "dddd"},
             {"CGEventTapCreate", "E " + tap_failure, 1, "ddss"},
             {"CFMachPortCreateRunLoopSource", "E " + tap_failure, 1, "ddss"},
         }) {
        SCOPED_TRACE(one.function);
        log.forget();
        simulator::fail_next(one.function);
        hooks = std::make_unique<hook_manager_t>();
        EXPECT_TRUE(log.has(one.line));
        EXPECT_EQ(simulator::taps_alive(), one.taps);
        move_to(over_mail);
        simulator::forget_events();
        click(side_1);
        tap_key(mouse, side_1_key);
        EXPECT_EQ(fates(), one.fates);
        stop();
    }
}

TEST_F(hook_manager_test, what_is_missing_fails_the_construction_and_holds_no_event_up) {
    using simulator::permission_e;
    stops_in_order = false;  // what the system had handed out goes with the process
    simulator::set_tap_patience(std::chrono::seconds(30));
    const std::string not_open = "IOHIDManagerOpen failed";
    const std::string code = std::to_string(kIOReturnNotPermitted);
    const auto refuse_second_tap = [] {
        simulator::after_next("CGEventTapCreate", [] { simulator::fail_next("CGEventTapCreate"); });
    };
    const std::tuple<std::function<void()>, std::string, lines_t> cases[] = {
        {[] { simulator::revoke(permission_e::input_monitoring); },
         not_open,
         {"E " + not_open + ": " + code + ", Check the input system permissions"}},
        {[] { simulator::revoke(permission_e::accessibility); }, tap_failure, {"E " + tap_failure}},
        {refuse_second_tap, tap_failure, {}},
    };
    for (const auto& [refuse, what, lines] : cases) {
        log.forget();
        refuse();
        try {
            const hook_manager_t failing;
            ADD_FAILURE() << what;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), what);
        }
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(hook_mng_access, nullptr);
        simulator::grant(permission_e::input_monitoring);
        simulator::grant(permission_e::accessibility);

        // What is left of the attempt holds no event up, with nobody there to run the run loop.
        simulator::press(mouse, side_1);
        const auto delivered = [] {
            const auto all = simulator::events();
            return !all.empty() && all[0].outcome == event_outcome_e::delivered;
        };
        for (int ms = 0; ms < 10'000 && !delivered(); ++ms) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(fates(), "d");
        move_to(over_mail);
    }
    EXPECT_EQ(hook_manager_t::current_active_mouse.load(), qlx_device_e::not_a_device);
}

// The daemon is a process of its own, which starts before anything else has made a thread.
TEST_F(hook_manager_test, a_keyboard_tap_that_is_disabled_ends_the_process_with_a_warning) {
    using namespace std::chrono_literals;
    const auto daemon = [this] {
        utils::init_log("QlxDaemon", utils::sink_e::file);
        hooks = std::make_unique<hook_manager_t>();
        move_to(over_mail);
        simulator::set_tap_patience(50ms);
        simulator::hold_next_tap_callback();
        simulator::press_key(mouse, side_1_key);
        std::thread([] {
            std::this_thread::sleep_for(500ms);
            simulator::let_tap_callbacks_go();
        }).detach();
        let_it_happen();
    };
    EXPECT_EXIT(daemon(), testing::ExitedWithCode(77), "");
    const std::string file = temporary_home_t::content_of(home.log_file());
    EXPECT_NE(file.find("[W] [app] [QlxDaemon:hook_manager_taps.cpp:"), std::string::npos);
    EXPECT_TRUE(file.ends_with("Event tap keyboard disabled, exiting…\n")) << file;
}
