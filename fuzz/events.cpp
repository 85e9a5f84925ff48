// The soak's hand, led by the input, on the whole capture: what is swallowed and which keys come is
// as it foretells, whatever it does at which moment, and nothing stays owned.

#include "common/config/config.h"
#include "macos/hook_manager.h"
#include "reliability/hand.h"
#include "support/told_watcher.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_home_t home;
    testing::FLAGS_gtest_throw_on_failure = true;  // which ends the program
    const std::uint8_t* const end = data + std::min<std::size_t>(size, 300);
    const auto reload = [](const std::string& text) {
        config_t::instance();
        for (const auto& one : {text, text.substr(0, text.size() / 2)}) {  // the second is useless
            std::ofstream(home.settings_file()) << one;
            told_watcher::tell(home.settings_file());
        }
    };
    reload(settings(false));
    hook_manager_t::current_active_mouse = qlx_device_e::not_a_device;
    {
        hand_t hand(
            {[&] { return data < end ? *data++ : 0U; }, simulator::run_loop_e::run, reload, true});
        const hook_manager_t hooks;
        do {
            hand.play_batch(static_cast<unsigned>(end - data) / 4, false);
        } while (data < end);
    }
    EXPECT_EQ(simulator::objects_alive(), lines_t{});
    EXPECT_EQ(simulator::taps_alive(), 0U);
    return 0;
}
