#include "macos/query_manager.h"

#include "macos/device_mappings.h"
#include "support/fake_hidapi.h"
#include "support/test.h"

namespace {

using fake_hidapi::interface_t;

// Its exit code and what it prints, as "0|output|errors".
std::string outcome_of(const query_manager_t& queries, const std::string& query) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const std::string code = std::to_string(queries.run(query, {}));
    const std::string output = testing::internal::GetCapturedStdout();
    return code + "|" + output + "|" + testing::internal::GetCapturedStderr();
}

interface_t supported(std::size_t row, unsigned short page = 0x01, unsigned short usage = 0x02) {
    return {static_cast<unsigned short>(device_mappings[row].vendor_id),
            static_cast<unsigned short>(device_mappings[row].product_id), page, usage};
}

}  // namespace

TEST(query_manager, first_registration_of_a_name_stays_and_a_failure_becomes_a_message) {
    query_manager_t queries("p");
    const auto answering = [](int code) { return [code](const auto&) { return code; }; };
    EXPECT_TRUE(queries.add("a", answering(11), "first"));
    EXPECT_TRUE(queries.add("b", nullptr, ""));
    EXPECT_FALSE(queries.add("a", answering(33), "second"));
    EXPECT_EQ(queries.resolve("a")->description, "first");
    EXPECT_TRUE(queries.add_alias("x", "a"));
    EXPECT_TRUE(queries.add_alias("x", "b"));
    EXPECT_FALSE(queries.add_alias("z", "x")) << "an alias is no command";
    EXPECT_FALSE(queries.add_alias("y", "later"));
    EXPECT_TRUE(queries.add("later", answering(44), ""));
    EXPECT_FALSE(queries.contains("y"));
    EXPECT_TRUE(queries.add("x", answering(55), ""));
    EXPECT_EQ(queries.run("x", {}), 11) << "a name that is both is the alias";

    queries.add(
        "bad", [](const auto&) -> int { throw std::runtime_error("no such luck"); }, "");
    queries.add_alias("worse", "bad");
    EXPECT_EQ(outcome_of(queries, "worse"),
              "1||Error: exception in handler 'worse': no such luck\n");
    EXPECT_EQ(queries.run("b", {}), 1);
}

TEST(list_mice, supported_models_are_listed_once_and_nothing_stays_open) {
    interface_t mixed = supported(0);  // the vendor of one row with the product of another
    mixed.product_id = supported(2).product_id;
    const std::tuple<std::vector<interface_t>, bool, std::string> cases[] = {
        {{supported(0, 0x01, 0x06), supported(0, 0x0C), mixed}, false, "[]"},
        {{supported(2), {0xFFFE, 0x0001}, supported(0), supported(0)}, false, "[1]"},
        {{supported(0)}, true, "[]"},
    };
    for (const auto& [attached, refuses_to_start, numbers] : cases) {
        fake_hidapi::attached = attached;
        fake_hidapi::refuses_to_start = refuses_to_start;
        EXPECT_EQ(outcome_of(query_manager_t("p"), "list-mice"), "0|" + numbers + "\n|");
        EXPECT_EQ(fake_hidapi::sessions_open, 0U);
    }
}
