#include <CoreFoundation/CoreFoundation.h>

#include "core_foundation/mach_port.h"
#include "simulator/desktop_test.h"

// What the platform's own library was not asked: what is owned, and mistakes.
namespace {

using core_foundation_test = desktop_test;
using simulator::objects_alive;

CFArrayRef array_of(const void** values, CFIndex count) {
    return CFArrayCreate(nullptr, values, count, &kCFTypeArrayCallBacks);
}

CFRunLoopTimerRef add_due_timer(CFTimeInterval interval, CFRunLoopTimerCallBack callout) {
    const auto timer = CFRunLoopTimerCreate(nullptr, 0, interval, 0, 0, callout, nullptr);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    return timer;
}

TEST_F(core_foundation_test, what_is_served_no_more_is_let_go) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    for (const bool invalidated : {false, true}) {
        // What the port calls when it ends is its own.
        auto made = std::make_unique<simulator::mach_port_t>(
            [uses = std::make_shared<int>(0)] { ++*uses; });
        const auto messages = made->messages();
        const auto port = static_cast<CFMachPortRef>(
            const_cast<void*>(simulator::publish(std::move(made), "the test")));
        const auto source = CFMachPortCreateRunLoopSource(nullptr, port, 0);
        lines_t alive;
        messages->post([&] {
            alive = objects_alive();
            invalidated ? CFMachPortInvalidate(port)
                        : CFRunLoopRemoveSource(loop, source, kCFRunLoopCommonModes);
        });
        CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
        CFRelease(port);
        CFRelease(source);
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, 1);
        EXPECT_EQ(alive,
                  (lines_t{"CFMachPort from the test, retained 1",
                           "CFRunLoopSource from CFMachPortCreateRunLoopSource, retained 1"}));
        EXPECT_EQ(objects_alive(), lines_t());
    }
    CFRelease(add_due_timer(0, [](auto...) {}));
    CFRelease(add_due_timer(60, [](auto timer, auto) { CFRunLoopTimerInvalidate(timer); }));
    EXPECT_EQ(objects_alive().size(), 2U);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 0);
}

TEST_F(core_foundation_test, mistakes_end_the_program_with_the_function) {
    const int foreign = 0;
    const CFArrayRef array = array_of(nullptr, 0);
    const auto make_number = [&](int type) {
        return CFNumberCreate(nullptr, static_cast<CFNumberType>(type), &foreign);
    };
    const auto read = [](const void* number) {
        CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberIntType, nullptr);
    };
    const auto add_to_second_loop = [](CFRunLoopTimerRef timer) {
        std::thread([=] {
            CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
        }).join();
    };
    EXPECT_DEATH(CFRetain(&foreign), "CFRetain: the reference is dead, or was never one");
    EXPECT_DEATH(array_of(nullptr, 1), "CFArrayCreate: there are no such items");
    EXPECT_DEATH(CFArrayAppendValue(const_cast<CFMutableArrayRef>(array), CFSTR("item")),
                 "CFArrayAppendValue: the array is immutable");
    EXPECT_DEATH(read(make_number(kCFNumberIntType)), "CFNumberGetValue: there is no place");
    EXPECT_DEATH(read(array), "CFNumberGetValue: expects CFNumber, got CFArray");
    EXPECT_DEATH(add_to_second_loop(add_due_timer(1, [](auto...) {})), "is in another run loop");
    EXPECT_DEATH(CFRunLoopRunInMode(CFSTR("mine"), 0, 0), "CFRunLoopRunInMode: not modelled");
    simulator::fail_next("CFNumberCreate");  // a mistake is one then, too
    EXPECT_DEATH(make_number(6), "CFNumberCreate: not modelled: the num");
    CFRelease(array);
}

}  // namespace
