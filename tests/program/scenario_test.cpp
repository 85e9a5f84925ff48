#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "player/key_names.h"
#include "player/scenario.h"
#include "support/temporary_home.h"

namespace {

using json_t = nlohmann::json;

class scenario : public testing::Test {
  protected:
    // What the reader says of a scenario; empty when it takes it.
    std::string refusal(const std::string& text) const {
        const auto file = home.path() / "s.json";
        std::ofstream(file) << text;
        try {
            simulator::player::read_scenario(file);
            return "";
        } catch (const std::exception& error) {
            return std::string(error.what()).substr(file.string().size());
        }
    }

    const temporary_home_t home;
    const json_t good = json_t::parse(R"({
        "title": "t",
        "devices": {"mouse": {"product": "QLX Valtor Pro Bluetooth"}},
        "applications": {"Mail": {"frame": [0, 0, 10, 10]}},
        "steps": [{"do": "click", "button": "side 1", "device": "mouse", "over": "Mail",
                   "expect": {"event": "swallowed"}}]})");
};

TEST_F(scenario, names_the_step_and_the_key_of_what_it_does_not_know) {
    ASSERT_EQ(refusal(good.dump()), "");
    struct case_t {
        json_t patch;
        std::string says;
    };
    for (const case_t& one : std::vector<case_t>{
             {{{"stpes", 1}}, ": \"stpes\" is not a known key here"},
             {{{"title", 1}}, ": \"title\" must be a text"},
             {{{"devices", {{"mouse", {{"product", "Other"}}}}}},
              ", \"devices\", \"mouse\": \"product\" is not a product of the program's table"},
             {{{"devices", {{"mouse", {{"vendor_id", 65536}, {"product", nullptr}}}}}},
              ", \"devices\", \"mouse\": \"vendor_id\" must be a whole number from 0 to 65535"},
             {{{"steps", {{{"do", "juggle"}}}}}, ", step 1: \"do\" is \"juggle\"; known are: "},
             {{{"steps", {{{"do", "look"}}, {{"do", "move"}, {"device", "cat"}}}}},
              ", step 2: \"device\" is \"cat\", which the scenario does not have"},
             {{{"steps", {{{"do", "move"}, {"device", "mouse"}, {"over", "Cat"}}}}},
              ", step 1: \"over\" is \"Cat\", which the scenario does not have"},
             {{{"steps", {{{"do", "look"}, {"expect", {{"event", "eaten"}}}}}}},
              ", step 1, \"expect\": \"event\" is \"eaten\"; known are: delivered, swallowed"},
             {{{"steps", {{{"do", "connect"}, {"device", "mouse"}}}}},
              ", step 1: \"device\" mouse is connected already"},
             {{{"steps", {{{"do", "hold daemon"}}, {{"do", "look"}}}}},
              ", step 1: \"do\" needs a step behind it that sends an event"},
             {{{"front_application", false}, {"steps", {{{"do", "delete front application"}}}}},
              ", step 1: \"do\" needs the front application, which is not there"},
             {{{"displays", {{{"name", "A"}, {"vendor", 1}, {"product", 2}, {"numbers", "up"}}}}},
              ", display 1: \"numbers\" is \"up\"; known are: below, no entry, on entry"},
             {{{"steps", {{{"do", "hang application"}, {"application", "Cat"}}}}},
              ", step 1: \"application\" is \"Cat\", which the scenario does not have"},
             {{{"steps", {{{"do", "burst"}, {"acts", {{{"do", "look"}}}}}}}},
              ", step 1, act 1: \"do\" is \"look\", which is no act of the hand"},
             {{{"settings", 5}}, ": \"settings\" must be an object, or a text"},
             {{{"runs", json_t::array()}, {"steps", nullptr}},
              ": \"runs\" must be a list with at least one run"},
         }) {
        json_t changed = good;
        changed.merge_patch(one.patch);
        EXPECT_EQ(refusal(changed.dump()).rfind(one.says, 0), 0U) << one.says << "\n"
                                                                  << refusal(changed.dump());
    }
    EXPECT_EQ(refusal(R"({"title": "a", "steps": [], "title": "b"})"), ": \"title\" stands twice");
    EXPECT_EQ(refusal("{").rfind(": [json.exception.parse_error", 0), 0U);
}

TEST(keys, have_names_in_both_directions) {
    using simulator::player::key_code;
    using simulator::player::key_event_text;
    EXPECT_EQ(key_code("Left Bracket"), 33);
    EXPECT_EQ(key_code("code 300"), 300);
    EXPECT_FALSE(key_code("code 70000"));
    EXPECT_FALSE(key_code("code 3x"));
    EXPECT_FALSE(key_code("c"));
    EXPECT_EQ(key_event_text(8, true, 0x120000), "C down [Shift Command]");
    EXPECT_EQ(key_event_text(200, false, 0), "code 200 up");
}

}  // namespace
