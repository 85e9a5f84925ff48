#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>
#include <libproc.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/applications.h"
#include "control/launches.h"
#include "control/objects.h"
#include "control/permissions.h"

namespace {

using simulator::element_id_t;
using simulator::window_options_t;
using simulator::window_part_e;

const CGRect whole = CGRectMake(0, 0, 800, 600);
AXUIElementRef const nowhere = nullptr;

// Takes over what a Copy call gave and gives it back at the end of the test.
class owner_t {
  public:
    owner_t() = default;
    owner_t(const owner_t&) = delete;
    owner_t& operator=(const owner_t&) = delete;
    ~owner_t() {
        for (const CFTypeRef each : _owned) {
            CFRelease(each);
        }
    }
    AXUIElementRef element(CFTypeRef reference) {
        if (reference != nullptr) {
            _owned.push_back(reference);
        }
        return static_cast<AXUIElementRef>(reference);
    }

  private:
    std::vector<CFTypeRef> _owned;
};

class accessibility_test : public testing::Test {
  protected:
    void TearDown() override {
        // Released before the objects are counted, so not in the destructor.
        _owner.reset();
        EXPECT_TRUE(simulator::objects_alive().empty());
    }

    AXUIElementRef own(CFTypeRef reference) { return _owner->element(reference); }

    AXUIElementRef system_wide() { return own(AXUIElementCreateSystemWide()); }

    AXUIElementRef element_at(float x, float y) {
        AXUIElementRef element = nowhere;
        const AXError error = AXUIElementCopyElementAtPosition(system_wide(), x, y, &element);
        EXPECT_EQ(error, element != nullptr ? kAXErrorSuccess : kAXErrorNoValue);
        return own(element);
    }

    // The element behind an attribute, null when the call fails.
    AXUIElementRef related(AXUIElementRef element, CFStringRef attribute) {
        CFTypeRef value = nullptr;
        _last_error = AXUIElementCopyAttributeValue(element, attribute, &value);
        EXPECT_EQ(value != nullptr, _last_error == kAXErrorSuccess);
        return own(value);
    }

    bool has_role(AXUIElementRef element, CFStringRef role) {
        CFTypeRef value = nullptr;
        EXPECT_EQ(AXUIElementCopyAttributeValue(element, kAXRoleAttribute, &value),
                  kAXErrorSuccess);
        own(value);
        return CFStringCompare(static_cast<CFStringRef>(value), role, 0) == kCFCompareEqualTo;
    }

    static pid_t process_of(AXUIElementRef element) {
        pid_t pid = 0;
        EXPECT_EQ(AXUIElementGetPid(element, &pid), kAXErrorSuccess);
        return pid;
    }

    AXError _last_error = kAXErrorSuccess;

  private:
    std::unique_ptr<owner_t> _owner = std::make_unique<owner_t>();
};

TEST_F(accessibility_test, the_frontmost_thing_at_a_place_is_found) {
    const pid_t mail = simulator::launch_application("Mail");
    const pid_t editor = simulator::launch_application("Editor");
    const pid_t shell = simulator::launch_application("Shell");
    const element_id_t inbox = simulator::open_window(mail, "Inbox", CGRectMake(0, 0, 100, 100));
    const element_id_t notes = simulator::open_window(editor, "Notes", CGRectMake(50, 0, 100, 100));
    simulator::show_background(shell, whole);
    simulator::show_menu_bar(editor, CGRectMake(0, 0, 800, 20));

    const auto expect = [&](float x, float y, pid_t application) {
        SCOPED_TRACE(testing::Message() << x << ", " << y);
        EXPECT_EQ(process_of(element_at(x, y)), application);
        EXPECT_EQ(simulator::application_at(CGPointMake(x, y)), application);
    };
    expect(60, 50, editor);
    expect(49, 50, mail);
    expect(149, 99, editor);
    expect(150, 99, shell);  // a frame does not cover its right and bottom edges
    expect(10, 10, editor);  // the menu bar
    simulator::bring_to_front(inbox);
    expect(60, 50, mail);
    simulator::close_window(inbox);
    expect(10, 50, shell);
    const AXUIElementRef window = related(element_at(60, 50), kAXWindowAttribute);
    ASSERT_EQ(AXUIElementSetAttributeValue(window, kAXMinimizedAttribute, kCFBooleanTrue),
              kAXErrorSuccess);
    expect(60, 50, shell);
    simulator::bring_to_front(notes);
    expect(60, 50, editor);
    simulator::quit_application(shell);
    for (const float far : {5000.0F, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ(element_at(far, 300), nowhere);
        EXPECT_EQ(simulator::application_at(CGPointMake(far, 300)), std::nullopt);
    }
}

TEST_F(accessibility_test, parents_lead_from_the_control_to_the_application) {
    const pid_t mail = simulator::launch_application("Mail");
    window_options_t options;
    options.control_knows_window = false;
    options.groups_around_control = 40;
    const element_id_t inbox = simulator::open_window(mail, "Inbox", whole, options);

    AXUIElementRef element = element_at(5, 5);
    EXPECT_EQ(related(element, kAXWindowAttribute), nowhere);
    EXPECT_EQ(_last_error, kAXErrorAttributeUnsupported);
    for (int step = 0; step < 41; ++step) {
        EXPECT_FALSE(has_role(element, kAXWindowRole)) << step;
        element = related(element, kAXParentAttribute);
    }
    EXPECT_TRUE(has_role(element, kAXWindowRole));
    EXPECT_EQ(process_of(element), mail);
    EXPECT_EQ(AXUIElementPerformAction(element, kAXPressAction), kAXErrorActionUnsupported);
    const AXUIElementRef application = related(element, kAXParentAttribute);
    EXPECT_TRUE(has_role(application, CFSTR("AXApplication")));
    EXPECT_EQ(related(application, kAXParentAttribute), nowhere);
    EXPECT_EQ(_last_error, kAXErrorNoValue);

    // Where the control is gone the window itself is hit, and has no "AXWindow".
    simulator::vanish(simulator::part_of(inbox, window_part_e::control));
    EXPECT_EQ(related(element_at(5, 5), kAXWindowAttribute), nowhere);
    EXPECT_TRUE(has_role(element_at(5, 5), kAXWindowRole));

    simulator::show_menu_bar(mail, CGRectMake(0, 0, 800, 20));
    const AXUIElementRef bar = element_at(5, 5);
    EXPECT_EQ(related(bar, kAXWindowAttribute), nowhere);
    EXPECT_TRUE(has_role(related(bar, kAXParentAttribute), CFSTR("AXApplication")));
}

std::string describe(element_id_t window) {
    const auto state = simulator::window_state(window);
    return !state               ? "closed"
           : state->minimized   ? "minimized"
           : state->zoomed      ? "zoomed"
           : state->full_screen ? "full screen"
                                : "as it was";
}

TEST_F(accessibility_test, windows_change_as_they_are_asked_to) {
    using option_t = bool window_options_t::*;
    const auto as_it_is = static_cast<option_t>(nullptr);
    struct change_t {
        CFStringRef attribute;  // set to true, or of the button that is pressed
        option_t turned;        // the option that is the other way round
        AXError error;          // of the change, or of getting the button
        const char* request;    // as recorded; null: none
        const char* after;
    };
    const CFStringRef minimized = kAXMinimizedAttribute;
    const CFStringRef full_screen = CFSTR("AXFullScreen");
    const change_t changes[] = {
        {minimized, as_it_is, kAXErrorSuccess, "set AXMinimized to true", "minimized"},
        {minimized, &window_options_t::minimized_settable, kAXErrorAttributeUnsupported,
         "set AXMinimized to true", "as it was"},
        {minimized, &window_options_t::sets_refused, kAXErrorFailure, "set AXMinimized to true",
         "as it was"},
        {full_screen, as_it_is, kAXErrorSuccess, "set AXFullScreen to true", "full screen"},
        {full_screen, &window_options_t::full_screen_settable, kAXErrorAttributeUnsupported,
         "set AXFullScreen to true", "as it was"},
        {full_screen, &window_options_t::has_full_screen, kAXErrorAttributeUnsupported, nullptr,
         "as it was"},
        {kAXMinimizeButtonAttribute, as_it_is, kAXErrorSuccess, "pressed AXMinimizeButton",
         "minimized"},
        {kAXZoomButtonAttribute, as_it_is, kAXErrorSuccess, "pressed AXZoomButton", "zoomed"},
        {kAXZoomButtonAttribute, &window_options_t::has_zoom_button, kAXErrorNoValue, nullptr,
         "as it was"},
        {kAXCloseButtonAttribute, as_it_is, kAXErrorSuccess, "pressed AXCloseButton", "closed"},
        {kAXCloseButtonAttribute, &window_options_t::presses_refused, kAXErrorFailure,
         "pressed AXCloseButton", "as it was"},
    };
    const pid_t mail = simulator::launch_application("Mail");
    std::size_t requests = 0;
    for (const change_t& change : changes) {
        SCOPED_TRACE(&change - changes);
        window_options_t options;
        if (change.turned != as_it_is) {
            options.*change.turned = !(options.*change.turned);
        }
        const element_id_t inbox = simulator::open_window(mail, "Inbox", whole, options);
        const AXUIElementRef window = related(element_at(5, 5), kAXWindowAttribute);

        AXError error = kAXErrorSuccess;
        if (change.attribute == minimized || change.attribute == full_screen) {
            Boolean settable = 2;
            error = AXUIElementIsAttributeSettable(window, change.attribute, &settable);
            EXPECT_EQ(settable, error != kAXErrorSuccess                       ? 2
                                : change.error == kAXErrorAttributeUnsupported ? 0
                                                                               : 1);
            error = AXUIElementSetAttributeValue(window, change.attribute, kCFBooleanTrue);
        } else if (const AXUIElementRef button = related(window, change.attribute)) {
            error = AXUIElementPerformAction(button, kAXPressAction);
        } else {
            error = _last_error;
        }
        EXPECT_EQ(error, change.error);
        EXPECT_EQ(describe(inbox), change.after);

        const auto all = simulator::window_requests();
        ASSERT_EQ(all.size(), requests + (change.request != nullptr ? 1 : 0));
        if (change.request != nullptr) {
            EXPECT_EQ(all.back().request, change.request);
            EXPECT_EQ(all.back().window, inbox);
            EXPECT_EQ(all.back().application + " " + all.back().title, "Mail Inbox");
            EXPECT_EQ(all.back().refused, error != kAXErrorSuccess);
        }
        requests = all.size();
        simulator::close_window(inbox);
    }
}

struct held_t {
    AXUIElementRef everything, window, button;
};

// Every call that asks an application; where it fails it must leave its result alone.
const std::pair<const char*, std::function<AXError(const held_t&)>> asking[] = {
    {"AXUIElementCopyElementAtPosition",
     [](const held_t& held) {
         AXUIElementRef result = held.window;
         const AXError error = AXUIElementCopyElementAtPosition(held.everything, 5, 5, &result);
         EXPECT_EQ(result, held.window);
         return error;
     }},
    {"AXUIElementCopyAttributeValue",
     [](const held_t& held) {
         CFTypeRef result = held.window;
         const AXError error =
             AXUIElementCopyAttributeValue(held.window, kAXCloseButtonAttribute, &result);
         EXPECT_EQ(result, held.window);
         return error;
     }},
    {"AXUIElementIsAttributeSettable",
     [](const held_t& held) {
         Boolean result = 2;
         const AXError error =
             AXUIElementIsAttributeSettable(held.window, kAXMinimizedAttribute, &result);
         EXPECT_EQ(result, 2);
         return error;
     }},
    {"AXUIElementSetAttributeValue",
     [](const held_t& held) {
         return AXUIElementSetAttributeValue(held.window, kAXMinimizedAttribute, kCFBooleanTrue);
     }},
    {"AXUIElementPerformAction",
     [](const held_t& held) { return AXUIElementPerformAction(held.button, kAXPressAction); }},
};

TEST_F(accessibility_test, asking_an_application_fails_as_its_state_says) {
    for (const auto& [name, ask] : asking) {
        SCOPED_TRACE(name);
        const pid_t mail = simulator::launch_application("Mail");
        simulator::open_window(mail, "Inbox", whole);
        const AXUIElementRef everything = system_wide();
        const AXUIElementRef window = related(element_at(5, 5), kAXWindowAttribute);
        const AXUIElementRef button = related(window, kAXMinimizeButtonAttribute);

        simulator::fail_next(name);
        EXPECT_EQ(ask({everything, window, button}), kAXErrorCannotComplete);

        simulator::before_next_call(
            name, [] { simulator::revoke(simulator::permission_e::accessibility); });
        EXPECT_EQ(ask({everything, window, button}), kAXErrorAPIDisabled);
        EXPECT_EQ(ask({everything, window, button}), kAXErrorAPIDisabled);
        EXPECT_EQ(process_of(button), mail);
        simulator::grant(simulator::permission_e::accessibility);

        simulator::before_next_call(name, [&] { simulator::quit_application(mail); });
        EXPECT_EQ(ask({everything, window, button}),
                  name == asking[0].first ? kAXErrorNoValue : kAXErrorInvalidUIElement);
        EXPECT_EQ(process_of(button), mail);
    }
    EXPECT_TRUE(simulator::window_requests().empty());

    simulator::fail_next("AXUIElementCreateSystemWide");
    EXPECT_EQ(AXUIElementCreateSystemWide(), nowhere);
}

TEST_F(accessibility_test, a_part_that_vanished_leaves_its_window_as_it_is) {
    const element_id_t inbox =
        simulator::open_window(simulator::launch_application("Mail"), "Inbox", whole);
    const AXUIElementRef window = related(element_at(5, 5), kAXWindowAttribute);
    const AXUIElementRef button = related(window, kAXCloseButtonAttribute);
    simulator::vanish(simulator::part_of(inbox, window_part_e::close_button));
    EXPECT_EQ(AXUIElementPerformAction(button, kAXPressAction), kAXErrorInvalidUIElement);
    EXPECT_EQ(related(window, kAXCloseButtonAttribute), nowhere);
    EXPECT_EQ(_last_error, kAXErrorNoValue);
    EXPECT_TRUE(simulator::window_state(inbox).has_value());
}

TEST_F(accessibility_test, many_threads_may_ask_while_windows_come_and_go) {
    const pid_t mail = simulator::launch_application("Mail");
    std::atomic<bool> stop = false;
    std::atomic<int> closed = 0;
    std::vector<std::thread> askers;
    askers.reserve(2);
    for (int thread = 0; thread < 2; ++thread) {
        askers.emplace_back([&] {
            while (!stop) {
                owner_t owner;
                AXUIElementRef control = nullptr;
                CFTypeRef window = nullptr;
                CFTypeRef button = nullptr;
                const AXUIElementRef everything = owner.element(AXUIElementCreateSystemWide());
                if (AXUIElementCopyElementAtPosition(everything, 5, 5, &control) == 0 &&
                    AXUIElementCopyAttributeValue(owner.element(control), kAXWindowAttribute,
                                                  &window) == 0 &&
                    AXUIElementCopyAttributeValue(owner.element(window), kAXCloseButtonAttribute,
                                                  &button) == 0 &&
                    AXUIElementPerformAction(owner.element(button), kAXPressAction) == 0) {
                    ++closed;
                }
            }
        });
    }
    for (int round = 0; round < 1000 || closed < 1000; ++round) {
        const element_id_t inbox = simulator::open_window(mail, "Inbox", whole);
        simulator::application_at(CGPointMake(5, 5));
        simulator::close_window(simulator::open_window(mail, "Draft", whole));
        simulator::bring_to_front(inbox);
        simulator::window_state(inbox);
    }
    stop = true;
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(static_cast<int>(simulator::window_requests().size()), closed);
}

TEST_F(accessibility_test, a_mistake_ends_the_program_with_the_name_of_the_call) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    simulator::open_window(simulator::launch_application("Mail"), "Inbox", whole);
    const AXUIElementRef everything = system_wide();
    const AXUIElementRef control = element_at(5, 5);
    AXUIElementRef element = nullptr;
    CFTypeRef value = nullptr;
    pid_t pid = 0;
    const std::pair<std::function<void()>, const char*> mistakes[] = {
        {[&] { AXUIElementCopyElementAtPosition(nullptr, 5, 5, &element); },
         "AXUIElementCopyElementAtPosition: the reference is null"},
        {[&] { AXUIElementCopyElementAtPosition(control, 5, 5, &element); },
         "AXUIElementCopyElementAtPosition: not modelled"},
        {[&] { AXUIElementCopyAttributeValue(control, CFSTR("AXWindwo"), &value); },
         "AXUIElementCopyAttributeValue: not modelled: reading the attribute AXWindwo"},
        {[&] { AXUIElementCopyAttributeValue(control, kAXRoleAttribute, nullptr); },
         "AXUIElementCopyAttributeValue: there is no place"},
        {[&] { AXUIElementSetAttributeValue(control, kAXRoleAttribute, kCFBooleanTrue); },
         "AXUIElementSetAttributeValue: not modelled: setting the attribute AXRole"},
        {[&] { AXUIElementSetAttributeValue(control, kAXMinimizedAttribute, CFSTR("yes")); },
         "AXUIElementSetAttributeValue: expects CFBoolean, got CFString"},
        {[&] { AXUIElementPerformAction(control, CFSTR("AXRaise")); },
         "AXUIElementPerformAction: not modelled"},
        {[&] { AXUIElementGetPid(everything, &pid); }, "AXUIElementGetPid: not modelled"},
        {[&] {
             CFRelease(control);
             AXUIElementGetPid(control, &pid);
         },
         "AXUIElementGetPid: the reference is dead"},
    };
    for (const auto& [mistake, message] : mistakes) {
        EXPECT_DEATH(mistake(), message);
    }
}

TEST_F(accessibility_test, trust_follows_the_permission_and_nobody_is_asked) {
    const auto trusted = [](CFBooleanRef prompt) {
        const void* key = kAXTrustedCheckOptionPrompt;
        const void* value = prompt;
        const CFDictionaryRef options =
            CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                               &kCFTypeDictionaryValueCallBacks);
        const Boolean answer = AXIsProcessTrustedWithOptions(options);
        CFRelease(options);
        return answer != 0;
    };
    for (const bool granted : {true, false}) {
        (granted ? simulator::grant : simulator::revoke)(simulator::permission_e::accessibility);
        EXPECT_EQ(AXIsProcessTrusted() != 0, granted);
        EXPECT_EQ(AXIsProcessTrustedWithOptions(nullptr) != 0, granted);
        EXPECT_EQ(trusted(kCFBooleanFalse), granted);
    }
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(trusted(kCFBooleanTrue), "AXIsProcessTrustedWithOptions: not modelled");
}

TEST(processes, names_are_the_kernels_short_ones) {
    std::array<char, 64> buffer{};
    const auto name_of = [&](pid_t pid, std::uint32_t room) {
        buffer.fill('#');
        errno = 0;
        return proc_name(pid, buffer.data(), room);
    };
    const pid_t mail = simulator::launch_application("Mail");
    EXPECT_EQ(name_of(mail, buffer.size()), 4);
    EXPECT_STREQ(buffer.data(), "Mail");
    EXPECT_EQ(name_of(mail, 31), 0);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(buffer[0], '#');

    const std::string given = "A helper with a name too long for it";
    const pid_t helper = simulator::launch_application(given);
    EXPECT_EQ(name_of(helper, buffer.size()), 31);
    EXPECT_EQ(buffer.data(), given.substr(0, 31));
    EXPECT_EQ(buffer[32], '#');
    EXPECT_EQ(simulator::application_named(given), helper);

    simulator::quit_application(mail);
    EXPECT_EQ(name_of(mail, buffer.size()), 0);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(buffer[0], '#');
}

TEST(launch_services, the_paths_opened_are_kept) {
    const auto open = [](CFStringRef path) {
        const CFURLRef url =
            CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, 0);
        const OSStatus status = LSOpenCFURLRef(url, nullptr);
        CFRelease(url);
        return status;
    };
    simulator::refuse_launch("/missing");
    EXPECT_EQ(open(CFSTR("/Programs/A Program.app")), 0);
    EXPECT_EQ(open(CFSTR("/missing")), kLSApplicationNotFoundErr);
    simulator::fail_next("LSOpenCFURLRef");
    EXPECT_EQ(open(CFSTR("/other")), kLSApplicationNotFoundErr);
    EXPECT_EQ(simulator::launches(), std::vector<std::string>{"/Programs/A Program.app"});
    EXPECT_TRUE(simulator::objects_alive().empty());
}

}  // namespace
