#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/objects.h"
#include "core_foundation/mach_port.h"

// What the platform's own library was not asked: what is owned, mistakes, and threads.
namespace {

using lines_t = std::vector<std::string>;

lines_t objects_alive() {
    lines_t alive = simulator::objects_alive();
    std::sort(alive.begin(), alive.end());
    return alive;
}

CFStringRef make_string() {
    return CFStringCreateWithBytes(kCFAllocatorDefault, nullptr, 0, kCFStringEncodingUTF8, 0);
}

CFArrayRef array_of(const void** values, CFIndex count) {
    return CFArrayCreate(kCFAllocatorDefault, values, count, &kCFTypeArrayCallBacks);
}

CFMutableDictionaryRef make_dictionary(CFIndex capacity) {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, capacity, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

CFRunLoopTimerRef add_due_timer(CFTimeInterval interval, CFRunLoopTimerCallBack callout) {
    const CFRunLoopTimerRef timer =
        CFRunLoopTimerCreate(kCFAllocatorDefault, 0, interval, 0, 0, callout, nullptr);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    return timer;
}

// A port with a message, and its source; a run loop alone keeps both.
struct channel_t {
    channel_t(CFRunLoopRef loop, const std::function<void()>& message) {
        // It uses what goes with the port.
        const auto invalidated = [uses = std::make_shared<int>(0)] { ++*uses; };
        auto made = std::make_unique<simulator::mach_port_t>(invalidated);
        made->messages()->post(message);
        port = static_cast<CFMachPortRef>(
            const_cast<void*>(simulator::publish(std::move(made), "channel_t")));
        source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
        CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
        CFRelease(port);
        CFRelease(source);
    }

    CFMachPortRef port = nullptr;
    CFRunLoopSourceRef source = nullptr;
};

TEST(owners, of_containers_and_their_items_are_listed) {
    const void* text = make_string();
    const CFArrayRef array = array_of(&text, 1);
    const CFMutableDictionaryRef dictionary = make_dictionary(0);
    CFDictionarySetValue(dictionary, text, text);
    CFDictionarySetValue(dictionary, text, array);
    CFRelease(text);
    CFRelease(array);
    EXPECT_EQ(objects_alive(), (lines_t{"CFArray from CFArrayCreate, retained 1",
                                        "CFDictionary from CFDictionaryCreateMutable, retained 1",
                                        "CFString from CFStringCreateWithBytes, retained 2"}));
    CFRelease(dictionary);
    EXPECT_EQ(objects_alive(), lines_t());
}

TEST(owners, are_run_loops_of_what_they_serve_until_it_goes) {
    const auto remove = [](const channel_t& channel, CFRunLoopMode mode) {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), channel.source, mode);
    };
    const std::vector<std::function<void(const channel_t&)>> ways = {
        [&](const auto& channel) { remove(channel, kCFRunLoopCommonModes); },
        [&](const auto& channel) {
            remove(channel, kCFRunLoopDefaultMode);
            remove(channel, kCFRunLoopCommonModes);
        },
        [](const auto& channel) { CFMachPortInvalidate(channel.port); },
    };
    for (const auto& let_go : ways) {
        lines_t alive;
        const channel_t channel(CFRunLoopGetCurrent(), [&] {
            alive = objects_alive();
            let_go(channel);
        });
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, 1);
        EXPECT_EQ(alive,
                  (lines_t{"CFMachPort from channel_t, retained 1",
                           "CFRunLoopSource from CFMachPortCreateRunLoopSource, retained 1"}));
        EXPECT_EQ(objects_alive(), lines_t());
    }
    CFRelease(add_due_timer(0, [](auto...) {}));
    CFRelease(add_due_timer(60, [](auto timer, auto) { CFRunLoopTimerInvalidate(timer); }));
    EXPECT_EQ(objects_alive().size(), 2U);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 0);
    EXPECT_EQ(objects_alive(), lines_t());
}

TEST(threads, feed_and_stop_another_threads_run_loop) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::atomic<int> called{0};
    std::thread other([&] {
        for (int turn = 1; turn <= 3; ++turn) {
            const channel_t channel(loop, [&] { ++called; });
            while (called < turn) {
                std::this_thread::yield();
            }
            CFRunLoopRemoveSource(loop, channel.source, kCFRunLoopCommonModes);
        }
        CFRunLoopStop(loop);
    });
    CFRunLoopRun();
    other.join();
    EXPECT_EQ(called, 3);
    EXPECT_EQ(objects_alive(), lines_t());
}

TEST(mistakes, end_the_program_with_the_function) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const CFStringRef dead = make_string();
    CFRelease(dead);
    const int foreign = 0;
    const void* items[] = {CFSTR("item")};
    const CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &foreign);
    const CFArrayRef array = array_of(nullptr, 0);
    const auto unknown_type = static_cast<CFNumberType>(6);

    const std::vector<std::pair<std::function<void()>, const char*>> mistakes = {
        {[&] { CFRetain(&foreign); }, "CFRetain: the reference is dead, or was never one"},
        {[&] { CFGetTypeID(dead); }, "CFGetTypeID: the reference is dead"},
        {[&] { items[0] = dead, array_of(items, 1); }, "CFArrayCreate: the reference is dead"},
        {[&] { array_of(items, -1); }, "CFArrayCreate: there are no such items"},
        {[] { array_of(nullptr, 1); }, "CFArrayCreate: there are no such items"},
        {[] { CFArrayCreateMutable(kCFAllocatorDefault, -1, &kCFTypeArrayCallBacks); },
         "CFArrayCreateMutable: the capacity is negative"},
        {[] { make_dictionary(-1); }, "CFDictionaryCreateMutable: the capacity is negative"},
        {[&] { CFArrayAppendValue(const_cast<CFMutableArrayRef>(array), items[0]); },
         "CFArrayAppendValue: the array is immutable"},
        {[&] { CFNumberGetValue(number, kCFNumberIntType, nullptr); },
         "CFNumberGetValue: there is no place"},
        {[&] { CFNumberGetValue(reinterpret_cast<CFNumberRef>(array), kCFNumberIntType, nullptr); },
         "CFNumberGetValue: expects CFNumber, got CFArray"},
        {[&] {
             simulator::fail_next("CFNumberCreate");  // a mistake is one then, too
             CFNumberCreate(kCFAllocatorDefault, unknown_type, &foreign);
         },
         "CFNumberCreate: not modelled: the number type 6"},
        {[] {
             const auto timer = add_due_timer(1, [](auto...) {});
             std::thread([=] {
                 CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
             }).join();
         },
         "CFRunLoopAddTimer: the timer is in another run loop already"},
        {[] { CFRunLoopRunInMode(CFSTR("mine"), 0, 0); }, "CFRunLoopRunInMode: not modelled"},
    };
    for (const auto& [mistake, message] : mistakes) {
        EXPECT_DEATH(mistake(), message);
    }
    CFRelease(number);
    CFRelease(array);
}

}  // namespace
