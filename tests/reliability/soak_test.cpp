// Long use: the whole daemon on a simulated desktop, its main thread's run loop and all its
// threads, with a hand that never rests. scripts/soak lets it run for a million events.

#include <malloc.h>

#include "reliability/hand.h"

int daemon_main(int argc, char** argv);

namespace {

namespace fs = std::filesystem;

// KiB of the heap in use (0 under a sanitizer), then descriptors, threads, and objects of the
// desktop that the daemon owns.
std::array<std::size_t, 4> usage_now() {
    const auto entries = [](const char* folder) {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
    };
    const auto heap = mallinfo2();
    return {(heap.uordblks + heap.hblkhd) / 1024, entries("/proc/self/fd"),
            entries("/proc/self/task"), simulator::objects_alive().size()};
}

// Lets the hand cause so many events. Its thread is one of its own: the main thread is the
// daemon's.
void play(hand_t& hand, std::size_t events) {
    const auto begin = std::chrono::steady_clock::now();
    std::array<std::size_t, 4> most{};
    for (std::size_t tenth = 1; tenth <= 10 && !testing::Test::HasFailure(); ++tenth) {
        while (hand.events < events * tenth / 10 && !testing::Test::HasFailure()) {
            // A reload makes the profiles new; in the first half they get as old as they can.
            hand.play_batch(64, tenth > 5);
        }
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        auto now = usage_now();
        std::printf("soak: %zu events, %.0f a second, heap %zu KiB, %zu reloads\n", hand.events,
                    static_cast<double>(hand.events) / time.count(), now[0], hand.reloads);
        most = tenth == 1 ? std::array{now[0] + 1024, now[1], now[2], now[3]} : most;
        // The last action lets go of its objects when its keys have come.
        EXPECT_TRUE(wait_until([&] {
            now = usage_now();
            return std::ranges::equal(now, most, std::less_equal<>());
        })) << testing::PrintToString(now)
            << " now; " << testing::PrintToString(most) << " then";
    }
    // The reload that is awaited, one after the first, and another mouse.
    const std::size_t reloads = std::max<std::size_t>(hand.reloads + 1, 2);
    EXPECT_TRUE(wait_until([&] {
        hand.play_batch(64, true);
        return (hand.reloads >= reloads && hand.changes > 0) || testing::Test::HasFailure();
    })) << hand.reloads
        << " reloads came, " << hand.changes << " other mice";
    std::printf("soak: %zu events, %zu survived\n", hand.events, hand.survived);
}

}  // namespace

TEST(soak, nothing_grows_or_gets_out_of_order_in_long_use) {
    const temporary_home_t home;
    const fs::path disk = home.path() / "disk";
    fs::create_directories(disk / "Applications" / "QlxControlCenter.app");
    setenv("QLX_DESKTOP_ROOT", disk.c_str(), 1);

    const char* const events = std::getenv("QLX_EVENTS");
    simulator::set_tap_patience(std::chrono::seconds(5));
    home.write_settings(settings(false));
    std::mt19937 random(1);
    auto hand = std::make_unique<hand_t>(hand_t::means_t{
        [&random] { return static_cast<unsigned>(random()); }, simulator::run_loop_e::leave,
        [&home](const std::string& text) { home.write_settings(text); }, false});
    std::thread player([&] {
        EXPECT_TRUE(simulator::wait_for_run_loop());
        play(*hand, events == nullptr ? 20'000 : std::strtoull(events, nullptr, 10));
        // The end: without Accessibility the daemon stops by itself.
        simulator::revoke(simulator::permission_e::accessibility);
    });
    std::string name = "QlxDaemon";
    std::array<char*, 2> arguments{name.data(), nullptr};
    EXPECT_EQ(daemon_main(1, arguments.data()), 1);
    player.join();
    EXPECT_EQ(simulator::objects_alive(), lines_t{});
    EXPECT_EQ(simulator::taps_alive(), 0U);
    EXPECT_EQ(simulator::kernel_queues_open(), 0U);
    hand.reset();
    simulator::shut_down();
}
