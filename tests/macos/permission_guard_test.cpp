#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "control/permissions.h"
#include "macos/rights_manager.h"

using namespace std::chrono_literals;
using simulator::permission_e;

namespace {

// A guard looks all the time with this period.
constexpr std::chrono::seconds at_once{0};
// And not within a test's patience with this one, save that its end waits for it.
constexpr std::chrono::seconds seldom{1};

// Gives a guard that should be idle the time for some hundred looks.
void let_it_look() {
    std::this_thread::sleep_for(30ms);
}

struct losses_t {
    std::atomic<int> count{0};
    std::atomic<std::thread::id> thread{};

    std::function<void()> counter() {
        return [this] {
            thread = std::this_thread::get_id();
            ++count;
        };
    }
};

bool wait_until(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    return condition();
}

}  // namespace

TEST(permission_guard, the_first_loss_calls_back_once_on_the_guards_thread_and_ends_the_watch) {
    simulator::revoke(permission_e::accessibility);
    losses_t losses;
    permission_guard_t guard(at_once, losses.counter());
    EXPECT_FALSE(guard.last_state());
    let_it_look();
    EXPECT_EQ(losses.count, 0) << "a permission that is missing at first is no loss";
    simulator::grant(permission_e::accessibility);
    ASSERT_TRUE(wait_until([&] { return guard.last_state(); }));

    simulator::revoke(permission_e::accessibility);
    ASSERT_TRUE(wait_until([&] { return losses.count == 1; }));
    EXPECT_NE(losses.thread.load(), std::this_thread::get_id());
    simulator::grant(permission_e::accessibility);
    let_it_look();
    EXPECT_FALSE(guard.last_state()) << "nobody looks any more";
    guard.poke_now();
    EXPECT_TRUE(guard.last_state());
    simulator::revoke(permission_e::accessibility);
    let_it_look();
    EXPECT_EQ(losses.count, 1);
}

TEST(permission_guard, poke_looks_at_once_on_the_calling_thread) {
    losses_t losses;
    permission_guard_t guard(seldom, losses.counter());
    permission_guard_t mute(seldom, nullptr);
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(guard.last_state());
    guard.poke_now();
    EXPECT_EQ(losses.thread.load(), std::this_thread::get_id());
    guard.poke_now();
    EXPECT_EQ(losses.count, 1);
    mute.poke_now();
    EXPECT_FALSE(mute.last_state());
}

TEST(permission_guard, moved_guard_goes_on_watching_for_its_new_object) {
    losses_t losses;
    auto from = std::make_unique<permission_guard_t>(at_once, losses.counter());
    permission_guard_t to(std::move(*from));
    auto& same = to;
    to = std::move(same);
    from->poke_now();
    EXPECT_TRUE(to.last_state());
    simulator::revoke(permission_e::accessibility);
    from->poke_now();
    from.reset();
    ASSERT_TRUE(wait_until([&] { return losses.count == 1; }));

    // A guard that has been emptied has no thread to hand on.
    simulator::grant(permission_e::accessibility);
    permission_guard_t empty(std::move(to));
    permission_guard_t emptier(std::move(to));
    emptier.poke_now();
    EXPECT_TRUE(emptier.last_state());
    EXPECT_EQ(losses.count, 1);
}

TEST(permission_guard, assigned_guard_keeps_its_callback_but_watches_no_more) {
    losses_t own;
    losses_t taken;
    permission_guard_t guard(at_once, own.counter());
    guard = permission_guard_t(at_once, taken.counter());
    simulator::revoke(permission_e::accessibility);
    let_it_look();
    EXPECT_TRUE(guard.last_state()) << "the new thread has ended at once";
    EXPECT_EQ(taken.count, 0);
    guard.poke_now();
    EXPECT_EQ(taken.count, 1);
    EXPECT_EQ(own.count, 0);
}
