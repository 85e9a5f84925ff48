#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>
#include <libproc.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/applications.h"
#include "control/calls.h"
#include "control/objects.h"
#include "control/permissions.h"

namespace {

using simulator::element_id_t;

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
        const AXError error = AXUIElementCopyAttributeValue(element, attribute, &value);
        EXPECT_EQ(value != nullptr, error == kAXErrorSuccess);
        return own(value);
    }

    static pid_t process_of(AXUIElementRef element) {
        pid_t pid = 0;
        EXPECT_EQ(AXUIElementGetPid(element, &pid), kAXErrorSuccess);
        return pid;
    }

  private:
    std::unique_ptr<owner_t> _owner = std::make_unique<owner_t>();
};

TEST_F(accessibility_test, the_frontmost_thing_at_a_place_is_found) {
    const pid_t mail = simulator::launch_application("Mail");
    const pid_t editor = simulator::launch_application("Editor");
    const pid_t shell = simulator::launch_application("Shell");
    const element_id_t inbox = simulator::open_window(mail, "Inbox", CGRectMake(0, 0, 100, 100));
    simulator::open_window(editor, "Notes", CGRectMake(50, 0, 100, 100));
    simulator::show_background(shell, whole);

    const auto expect = [&](float x, float y, pid_t application) {
        SCOPED_TRACE(testing::Message() << x << ", " << y);
        EXPECT_EQ(process_of(element_at(x, y)), application);
        EXPECT_EQ(simulator::application_at(CGPointMake(x, y)), application);
    };
    expect(60, 50, editor);
    expect(49, 50, mail);
    expect(150, 99, shell);  // a frame does not cover its right and bottom edges
    simulator::bring_to_front(inbox);
    expect(60, 50, mail);
    AXUIElementSetAttributeValue(related(element_at(60, 50), kAXWindowAttribute),
                                 kAXMinimizedAttribute, kCFBooleanTrue);
    expect(60, 50, editor);
    expect(10, 50, shell);
    EXPECT_EQ(element_at(std::numeric_limits<float>::quiet_NaN(), 300), nowhere);
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
        simulator::grant(simulator::permission_e::accessibility);

        simulator::before_next_call(name, [&] { simulator::quit_application(mail); });
        EXPECT_EQ(ask({everything, window, button}),
                  name == asking[0].first ? kAXErrorNoValue : kAXErrorInvalidUIElement);
        EXPECT_EQ(process_of(button), mail);
    }
    EXPECT_TRUE(simulator::window_requests().empty());
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
    const auto read_dead = [&] {
        CFRelease(control);
        AXUIElementGetPid(control, &pid);
    };
    EXPECT_DEATH(AXUIElementCopyElementAtPosition(nullptr, 5, 5, &element),
                 "Position: the refer.*null");
    EXPECT_DEATH(AXUIElementCopyElementAtPosition(control, 5, 5, &element),
                 "Position: not modelled");
    EXPECT_DEATH(AXUIElementCopyAttributeValue(control, CFSTR("AXWindwo"), &value),
                 "AXUIElementCopyAttributeValue: not modelled: reading the attribute AXWindwo");
    EXPECT_DEATH(AXUIElementCopyAttributeValue(control, kAXRoleAttribute, nullptr),
                 "there is no place");
    EXPECT_DEATH(AXUIElementSetAttributeValue(control, kAXMinimizedAttribute, CFSTR("yes")),
                 "expects CFBoolean, got CFString");
    EXPECT_DEATH(AXUIElementPerformAction(control, CFSTR("AXRaise")),
                 "AXUIElementPerformAction: not modelled");
    EXPECT_DEATH(AXUIElementGetPid(everything, &pid), "AXUIElementGetPid: not modelled");
    EXPECT_DEATH(read_dead(), "AXUIElementGetPid: the reference is dead");
}

TEST(processes, names_are_the_kernels_short_ones) {
    std::array<char, 64> buffer{};
    const std::string given = "A helper with a name too long for it";
    const pid_t helper = simulator::launch_application(given);
    EXPECT_EQ(proc_name(helper, buffer.data(), 31), 0);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(proc_name(helper, buffer.data(), buffer.size()), 31);
    EXPECT_EQ(buffer.data(), given.substr(0, 31));
    simulator::quit_application(helper);
    EXPECT_EQ(proc_name(helper, buffer.data(), buffer.size()), 0);
    EXPECT_EQ(errno, ESRCH);
}

}  // namespace
