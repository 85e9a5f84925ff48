#include "macos/hook_manager.h"
#include "support/supported_mouse.h"
#include "support/test.h"

// Both steps of the wheel have a key of their own; the middle button runs a command. By default
// that ends when all the others wait behind it; QLX_SLOW_SECONDS lets it go on until then.
TEST(load, ten_thousand_actions_wait_behind_a_slow_one_while_the_taps_answer) {
    using std::chrono::steady_clock;
    constexpr std::size_t count = 10'000;
    constexpr std::array<std::int64_t, 2> keys{0x00, 0x0B};  // of a step to the left, to the right
    const char* const seconds = std::getenv("QLX_SLOW_SECONDS");
    const auto end =
        steady_clock::now() + std::chrono::seconds(seconds == nullptr ? 0 : std::atoi(seconds));

    const temporary_home_t home;
    home.write_settings(R"({"appState": [{"type": 1, "appConfigs": {"Default": {
        "3": [{"action": 19}],
        "8": [{"action": 22, "params": {"combination": [106]}}],
        "9": [{"action": 22, "params": {"combination": [107]}}]}}}]})");
    const auto command = home.path() / "osascript";
    std::ofstream(command) << "#!/bin/sh\n: >\"$HOME/begun\"\n"
                              "until [ -e \"$HOME/go\" ]; do sleep 0.01; done\n";
    std::filesystem::permissions(command, std::filesystem::perms::owner_all);
    setenv("PATH", (home.path().string() + ":" + std::getenv("PATH")).c_str(), 1);
    const auto mouse = connect_supported();
    const auto let_it_happen = [] {
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run, std::chrono::seconds(60)));
    };
    simulator::set_tap_patience(std::chrono::seconds(5));  // room for a busy machine
    const hook_manager_t hooks;
    simulator::press(mouse, 2);
    simulator::release(mouse, 2);
    let_it_happen();
    EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(home.path() / "begun"); }));

    std::mt19937 random(1);
    std::vector<std::int64_t> wanted;
    wanted.reserve(count);
    while (wanted.size() < count || steady_clock::now() < end) {
        const std::size_t steps = wanted.size() < count ? 100 : 1;
        simulator::forget_events();
        for (std::size_t step = 0; step < steps; ++step) {
            const std::size_t right = random() % 2;
            simulator::scroll(mouse, 0, right == 0 ? -1 : 1);
            wanted.push_back(keys[right]);
        }
        let_it_happen();
        const auto events = simulator::events();
        EXPECT_TRUE(events.size() == steps &&
                    std::all_of(events.begin(), events.end(),
                                [](const auto& event) {
                                    return event.outcome == simulator::event_outcome_e::swallowed;
                                }))
            << "nothing is performed yet, and each event is answered";
        std::this_thread::sleep_for(std::chrono::milliseconds(steps == 1 ? 5 : 0));
    }
    EXPECT_EQ(simulator::taps_enabled(), 2U) << "no answer came too late";
    simulator::forget_events();
    std::ofstream(home.path() / "go") << "go";

    EXPECT_TRUE(wait_until([&] { return simulator::events().size() >= wanted.size() * 2; },
                           std::chrono::seconds(60)));
    std::vector<std::int64_t> performed;
    for (const auto& event : simulator::events()) {
        if (event.type == kCGEventKeyDown) {
            performed.push_back(event.key_code);
        }
    }
    EXPECT_TRUE(performed == wanted) << performed.size() << " of " << wanted.size();
    const auto first_wrong =
        std::mismatch(wanted.begin(), wanted.end(), performed.begin(), performed.end()).first;
    std::printf("load: %zu actions, %td survived\n", wanted.size(), first_wrong - wanted.begin());
}
