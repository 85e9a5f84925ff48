#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>
#include <libproc.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "control/applications.h"
#include "control/objects.h"

namespace {

using simulator::element_id_t;

const CGRect whole = CGRectMake(0, 0, 800, 600);

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
        _owner.reset();  // before the objects are counted
        EXPECT_TRUE(simulator::objects_alive().empty());
    }

    AXUIElementRef own(CFTypeRef reference) { return _owner->element(reference); }

    // The control of the window at the corner of the screen.
    AXUIElementRef control() {
        AXUIElementRef element = nullptr;
        EXPECT_EQ(
            AXUIElementCopyElementAtPosition(own(AXUIElementCreateSystemWide()), 5, 5, &element),
            kAXErrorSuccess);
        return own(element);
    }

    AXUIElementRef related(AXUIElementRef element, CFStringRef attribute) {
        CFTypeRef value = nullptr;
        EXPECT_EQ(AXUIElementCopyAttributeValue(element, attribute, &value), kAXErrorSuccess);
        return own(value);
    }

  private:
    std::unique_ptr<owner_t> _owner = std::make_unique<owner_t>();
};

TEST_F(accessibility_test, an_application_that_hangs_is_waited_for_until_the_time_out) {
    const pid_t mail = simulator::launch_application("Mail");
    simulator::open_window(mail, "Inbox", whole);
    const AXUIElementRef everything = own(AXUIElementCreateSystemWide());
    const AXUIElementRef window = related(control(), kAXWindowAttribute);
    AXUIElementRef found = nullptr;
    CFTypeRef value = nullptr;
    const auto hit = [&] { return AXUIElementCopyElementAtPosition(everything, 5, 5, &found); };
    const auto read = [&] {
        return AXUIElementCopyAttributeValue(window, kAXCloseButtonAttribute, &value);
    };
    const auto seconds_waited = [](const auto& call) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(call(), kAXErrorCannotComplete);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    simulator::hang_application(mail);
    EXPECT_EQ(AXUIElementSetMessagingTimeout(everything, -1), kAXErrorIllegalArgument);
    AXUIElementSetMessagingTimeout(own(AXUIElementCreateSystemWide()), 0.01F);
    EXPECT_LT(seconds_waited(hit), 3);
    EXPECT_LT(seconds_waited(read), 3);
    AXUIElementSetMessagingTimeout(window, 0.2F);
    EXPECT_GE(seconds_waited(read), 0.2);
    AXUIElementSetMessagingTimeout(everything, 0);
    AXUIElementSetMessagingTimeout(window, 0);
    simulator::set_usual_messaging_timeout(std::chrono::milliseconds(200));
    EXPECT_GE(seconds_waited(hit), 0.2);
    EXPECT_GE(seconds_waited(read), 0.2);
    simulator::set_usual_messaging_timeout(std::chrono::hours(1));
    std::thread hand([&] { simulator::quit_application(mail); });
    EXPECT_EQ(read(), kAXErrorInvalidUIElement);
    EXPECT_EQ(hit(), kAXErrorNoValue);
    EXPECT_TRUE(found == nullptr && value == nullptr);
    hand.join();
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
    const AXUIElementRef control = this->control();
    AXUIElementRef element = nullptr;
    CFTypeRef value = nullptr;
    pid_t pid = 0;
    const auto read_dead = [&] {
        CFRelease(control);
        AXUIElementGetPid(control, &pid);
    };
    EXPECT_DEATH(AXUIElementCopyElementAtPosition(control, 5, 5, &element),
                 "Position: not modelled");
    EXPECT_DEATH(AXUIElementCopyAttributeValue(control, CFSTR("AXWindwo"), &value),
                 "AXUIElementCopyAttributeValue: not modelled: reading the attribute AXWindwo");
    EXPECT_DEATH(AXUIElementSetAttributeValue(control, kAXMinimizedAttribute, CFSTR("yes")),
                 "expects CFBoolean, got CFString");
    EXPECT_DEATH(read_dead(), "AXUIElementGetPid: the reference is dead");
}

TEST(processes, names_are_the_kernels_short_ones) {
    using simulator::told_name_e;
    std::array<char, 64> buffer{};
    const auto told = [&](pid_t process, std::uint32_t size = 64) {
        errno = 0;
        const int length = proc_name(process, buffer.data(), size);
        return length > 0 ? std::string(buffer.data(), length) : std::to_string(errno);
    };
    const std::string given = "A helper with a name too long for it";
    const pid_t helper = simulator::launch_application(given);
    EXPECT_EQ(told(helper, 31), std::to_string(ENOMEM));
    EXPECT_EQ(told(helper), given.substr(0, 31));
    EXPECT_EQ(told(simulator::launch_application(given, told_name_e::cut)), given.substr(0, 15));
    EXPECT_EQ(told(simulator::launch_application(given, told_name_e::none)), std::to_string(EPERM));
    simulator::quit_application(helper);
    EXPECT_EQ(told(helper), std::to_string(ESRCH));
}

}  // namespace
