#include <ApplicationServices/ApplicationServices.h>
#include <libproc.h>

#include "simulator/desktop_test.h"

namespace {

using accessibility_test = desktop_test;

TEST_F(accessibility_test, a_call_waits_for_who_hangs_and_a_mistake_ends_the_program) {
    const auto open_application = [](const char* name) {
        const pid_t application = simulator::launch_application(name);
        simulator::open_window(application, name, {{0, 0}, {800, 600}});
        return application;
    };
    // Later than the shortest time-out below.
    const auto quit_soon = [](pid_t application) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        simulator::quit_application(application);
    };
    const pid_t mail = open_application("Mail");
    const AXUIElementRef everything = AXUIElementCreateSystemWide();
    const auto hit = [&](AXUIElementRef of, AXUIElementRef* found) {
        return AXUIElementCopyElementAtPosition(of, 5, 5, found);
    };
    AXUIElementRef control = nullptr, found = nullptr;
    ASSERT_EQ(hit(everything, &control), kAXErrorSuccess);
    CFTypeRef value = nullptr;
    const auto read = [&](CFStringRef attribute) {
        return AXUIElementCopyAttributeValue(control, attribute, &value);
    };
    EXPECT_DEATH(hit(control, &found), "Position: not modelled");
    EXPECT_DEATH(read(CFSTR("AXWindwo")), "Value: not modelled: reading the attribute AXWindwo");

    simulator::set_usual_messaging_timeout(std::chrono::hours(1));
    simulator::hang_application(mail);
    EXPECT_EQ(AXUIElementSetMessagingTimeout(everything, -1), kAXErrorIllegalArgument);
    AXUIElementSetMessagingTimeout(everything, 0.01F);
    EXPECT_EQ(hit(everything, &found), kAXErrorCannotComplete);
    EXPECT_EQ(read(CFSTR("AXRole")), kAXErrorCannotComplete);
    // Until it quits: for the time-out of the element, and then for the usual one.
    AXUIElementSetMessagingTimeout(control, 3600);
    std::thread hand(quit_soon, mail);
    EXPECT_EQ(read(CFSTR("AXRole")), kAXErrorInvalidUIElement);
    hand.join();
    AXUIElementSetMessagingTimeout(everything, 0);
    const pid_t notes = open_application("Notes");
    simulator::hang_application(notes);
    hand = std::thread(quit_soon, notes);
    EXPECT_EQ(hit(everything, &found), kAXErrorNoValue);
    hand.join();
    EXPECT_TRUE(found == nullptr && value == nullptr);
    CFRelease(control);
    CFRelease(everything);
}

TEST(processes, names_are_the_kernels_short_ones) {
    const pid_t helper = simulator::launch_application("A helper with a name too long for it");
    char buffer[32]{};
    EXPECT_TRUE(proc_name(helper, buffer, 31) == 0 && errno == ENOMEM);
    EXPECT_EQ(proc_name(helper, buffer, 32), 31);
    EXPECT_STREQ(buffer, "A helper with a name too long f");
}

}  // namespace
