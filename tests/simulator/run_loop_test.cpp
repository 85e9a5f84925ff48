#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/objects.h"
#include "core_foundation/mach_port.h"

namespace {

using lines_t = std::vector<std::string>;

// A port with its source, through which the desktop calls the program.
class channel_t {
  public:
    channel_t()
        : _port(static_cast<CFMachPortRef>(const_cast<void*>(
              simulator::publish(std::make_unique<simulator::mach_port_t>([] {}), "channel_t")))),
          _source(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, _port, 0)) {}
    channel_t(const channel_t&) = delete;
    channel_t& operator=(const channel_t&) = delete;
    ~channel_t() {
        invalidate();
        CFRelease(_port);
        CFRelease(_source);
    }

    void add(CFRunLoopMode mode = kCFRunLoopDefaultMode) {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), _source, mode);
    }
    void remove(CFRunLoopMode mode = kCFRunLoopDefaultMode) {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), _source, mode);
    }
    void invalidate() { CFMachPortInvalidate(_port); }
    bool post(std::function<void()> message) {
        return simulator::object_of<simulator::mach_port_t>(_port, "post")
            .messages()
            ->post(std::move(message));
    }

  private:
    CFMachPortRef _port;
    CFRunLoopSourceRef _source;
};

CFRunLoopRunResult run(CFTimeInterval seconds, bool one_source = false) {
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, one_source);
}

constexpr CFTimeInterval long_enough = 60;  // for runs that something else ends

class run_loop_test : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(run(0), kCFRunLoopRunFinished) << "the loop is empty";
        EXPECT_EQ(simulator::objects_alive(), lines_t());
    }

    std::function<void()> note(const std::string& what) {
        return [this, what] { log.push_back(what); };
    }

    lines_t log;
};

TEST_F(run_loop_test, an_empty_mode_finishes_at_once) {
    EXPECT_EQ(run(long_enough), kCFRunLoopRunFinished);
    CFRunLoopRun();
}

TEST_F(run_loop_test, no_time_is_enough_for_one_message_the_oldest_of_all_sources) {
    channel_t first;
    channel_t second;
    first.add();
    second.add(kCFRunLoopCommonModes);
    second.post(note("1"));
    first.post(note("2"));
    second.post(note("3"));
    EXPECT_EQ(run(0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(log, lines_t{"1"});
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
    EXPECT_EQ(log, (lines_t{"1", "2"}));
    EXPECT_EQ(run(0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(run(0, true), kCFRunLoopRunTimedOut);
    EXPECT_EQ(log, (lines_t{"1", "2", "3"}));
}

TEST_F(run_loop_test, a_stop_ends_the_run_that_is_under_way) {
    channel_t channel;
    channel.add();
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    CFRunLoopStop(loop);
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut) << "a stop before the run is lost";

    std::thread other;
    channel.post([&] { other = std::thread([loop] { CFRunLoopStop(loop); }); });
    CFRunLoopRun();
    other.join();

    channel.post([&] {
        CFRunLoopStop(loop);
        EXPECT_EQ(run(0), kCFRunLoopRunTimedOut) << "it is the outer run's";
    });
    EXPECT_EQ(run(long_enough), kCFRunLoopRunStopped);
}

TEST_F(run_loop_test, sources_are_served_while_added_and_valid) {
    channel_t channel;
    channel.add();
    channel.add(kCFRunLoopCommonModes);
    channel.remove();
    channel.post(note("still in the common modes"));
    EXPECT_EQ(run(0, true), kCFRunLoopRunHandledSource);

    channel.remove(kCFRunLoopCommonModes);
    channel.post(note("kept"));
    EXPECT_EQ(run(0), kCFRunLoopRunFinished);
    channel.add();
    EXPECT_EQ(run(0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(log, (lines_t{"still in the common modes", "kept"}));

    channel.post(note("dropped"));
    channel.invalidate();
    EXPECT_FALSE(channel.post(note("refused")));
    channel.add();
    EXPECT_EQ(run(0), kCFRunLoopRunFinished);
    EXPECT_EQ(log.size(), 2U);
}

// What a timer does when it fires; a program's timers are told apart by it.
using callout_t = std::function<void(CFRunLoopTimerRef)>;

// The loop keeps the timer, until it is invalidated or has fired once and for all.
CFRunLoopTimerRef add_timer(CFTimeInterval from_now, CFTimeInterval interval, callout_t& callout) {
    CFRunLoopTimerContext context{0, &callout, nullptr, nullptr, nullptr};
    const CFRunLoopTimerRef timer = CFRunLoopTimerCreate(
        kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + from_now, interval, 0, 0,
        [](CFRunLoopTimerRef fired, void* info) { (*static_cast<callout_t*>(info))(fired); },
        &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    CFRelease(timer);
    return timer;
}

TEST_F(run_loop_test, timers_fire_when_due_and_do_not_catch_up) {
    struct case_t {
        CFTimeInterval from_now, interval;
        int fired;
        CFRunLoopRunResult next_run;
    };
    for (const auto& [from_now, interval, fired, next_run] :
         {case_t{-1000, 0, 1, kCFRunLoopRunFinished}, case_t{-1000, 300, 1, kCFRunLoopRunTimedOut},
          case_t{1000, 0, 0, kCFRunLoopRunTimedOut}, case_t{1000, 1, 0, kCFRunLoopRunTimedOut}}) {
        int count = 0;
        callout_t callout = [&](CFRunLoopTimerRef) { ++count; };
        const CFRunLoopTimerRef timer = add_timer(from_now, interval, callout);
        EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
        EXPECT_EQ(run(0), next_run) << from_now << " " << interval;
        EXPECT_EQ(count, fired) << from_now << " " << interval;
        if (next_run != kCFRunLoopRunFinished) {
            CFRunLoopTimerInvalidate(timer);
        }
    }
}

TEST_F(run_loop_test, timers_go_when_a_callout_invalidates_them) {
    int count = 0;
    CFRunLoopTimerRef other = nullptr;
    callout_t third_time = [&](CFRunLoopTimerRef timer) {
        if (++count == 3) {
            CFRunLoopTimerInvalidate(timer);
            CFRunLoopTimerInvalidate(other);
        }
    };
    callout_t never = [](CFRunLoopTimerRef) { ADD_FAILURE() << "fired too early"; };
    add_timer(0.005, 0.005, third_time);
    other = add_timer(1000, 0, never);
    EXPECT_EQ(run(long_enough), kCFRunLoopRunFinished);
    EXPECT_EQ(count, 3);
}

}  // namespace
