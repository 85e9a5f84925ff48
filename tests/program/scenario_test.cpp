#include "player/scenario.h"

#include <nlohmann/json.hpp>

#include "support/test.h"

namespace {

TEST(scenario, names_the_step_and_the_key_of_what_it_does_not_know) {
    const temporary_home_t home;
    const auto file = home.path() / "s.json";
    // What the reader says of a scenario after its name; nothing when it takes it.
    const auto refusal = [&](const std::string& text) {
        std::ofstream(file) << text;
        const auto said = error_text([&] { simulator::player::read_scenario(file); });
        return said == "none" ? "" : said.substr(file.string().size());
    };
    const auto good = nlohmann::json::parse(R"({
        "title": "t",
        "devices": {"mouse": {"product": "QLX Valtor Pro Bluetooth"}},
        "applications": {"Mail": {"frame": [0, 0, 10, 10]}},
        "steps": [{"do": "click", "button": "side 1", "device": "mouse", "over": "Mail",
                   "expect": {"event": "swallowed"}}]})");
    ASSERT_EQ(refusal(good.dump()), "");
    const std::pair<std::string, std::string> cases[] = {
        {R"("stpes": 1)",
         R"(: "stpes" is not a known key here; known are: )"
         "applications, devices, displays, expect, failing_calls, front_application, "
         "messaging_timeout_ms, permissions, runs, settings, steps, system_support_folder, title"},
        {R"("title": 1)", R"(: "title" must be a text)"},
        {R"("runs": [], "steps": null)", R"(: "runs" must be a list with at least one run)"},
        {R"("devices": {"mouse": {"product": "Other"}})",
         R"(, "devices", "mouse": "product" is "Other"; known are: QLX Valtor Pro Bluetooth, )"
         "QLX Valtor Pro Bluetooth V2, QLX Valtor Pro Dongle & Bluetooth, "
         "QLX Valtor Pro Dongle V2, QLX Valtor Pro HID V2"},
        {R"("devices": {"mouse": {"vendor_id": 65536, "product": null}})",
         R"(, "devices", "mouse": "vendor_id" must be a whole number from 0 to 65535)"},
        {R"("steps": [{"do": "look"}, {"do": "move", "device": "cat"}])",
         R"(, step 2: "device" is "cat"; known are: mouse)"},
        {R"("steps": [{"do": "hang application", "application": "Cat"}])",
         R"(, step 1: "application" is "Cat"; known are: Mail)"},
        {R"("steps": [{"do": "look", "expect": {"event": "eaten"}}])",
         R"(, step 1, "expect": "event" is "eaten"; known are: delivered, swallowed)"},
        {R"("steps": [{"do": "look", "expect": {"keys": ["C down [Command]", "code 8 up"]}}])",
         R"(, step 1, "expect": "keys" has "code 8 up", which is no event of a key, such as )"
         R"("C down [Command]")"},
        {R"("steps": [])", R"(: "steps" must be a list with at least one step)"},
        {R"("steps": [{"do": "hold daemon"}, {"do": "look"}])",
         R"(, step 1: "do" needs a step behind it that sends an event)"},
        {R"("front_application": false, "steps": [{"do": "delete front application"}])",
         R"(, step 1: "do" needs the front application, which is not there)"},
        {R"("steps": [{"do": "wait for exit", "expect": {"log": ["Daemon stopped"]}}])",
         R"(, step 1: the log is whole only when the daemon has ended: say "log" in the )"
         R"("expect" of the run)"},
        {R"("steps": [{"do": "burst", "acts": [{"do": "look"}]}])",
         R"(, step 1, act 1: "do" is "look", which is no act of the hand)"},
        {R"("steps": [{"do": "tap key", "device": "mouse", "key": "code 3x"}])",
         R"(, step 1: "key" is "code 3x", which is no key)"},
    };
    for (const auto& [patch, says] : cases) {
        auto changed = good;
        changed.merge_patch(nlohmann::json::parse("{" + patch + "}"));
        EXPECT_EQ(refusal(changed.dump()), says) << patch;
    }
    EXPECT_EQ(refusal(R"({"title": "a", "steps": [], "title": "b"})"), ": \"title\" stands twice");
    EXPECT_EQ(refusal("{").rfind(": [json.exception.parse_error", 0), 0U);
}

}  // namespace
