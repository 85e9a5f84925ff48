#include "macos/query_manager.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "macos/device_mappings.h"
#include "macos/query_manager_mice.h"
#include "support/fake_hidapi.h"

namespace {

struct outcome_t {
    int code;
    std::string out;
    std::string error;

    bool operator==(const outcome_t&) const = default;
};

template <typename call_t>
outcome_t outcome_of(const call_t& call) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = call();
    return {code, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

query_manager_t::handler_t answering(int code) {
    return [code](const std::vector<std::string>&) { return code; };
}

fake_hidapi::interface_t supported(std::size_t row) {
    return {static_cast<unsigned short>(device_mappings[row].vendor_id),
            static_cast<unsigned short>(device_mappings[row].product_id)};
}

}  // namespace

TEST(query_manager, first_registration_of_a_name_stays) {
    query_manager_t queries("p");
    EXPECT_TRUE(queries.add("a", answering(11), "first"));
    EXPECT_TRUE(queries.add("b", answering(22), ""));
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
}

TEST(query_manager, a_failure_becomes_a_message) {
    query_manager_t queries("p");
    const auto bad = [](const std::vector<std::string>&) -> int {
        throw std::runtime_error("no such luck");
    };
    queries.add("bad", bad, "");
    queries.add_alias("worse", "bad");
    queries.add("none", nullptr, "");
    EXPECT_EQ(outcome_of([&] { return queries.run("worse", {}); }),
              (outcome_t{1, "", "Error: exception in handler 'worse': no such luck\n"}));
    EXPECT_EQ(queries.run("none", {}), 1);
    EXPECT_EQ(outcome_of([] { return print_answer(nullptr, "some_source()"); }),
              (outcome_t{1, "", "Error: some_source() returned NULL\n"}));
}

TEST(list_mice, supported_models_are_listed_once_and_nothing_stays_open) {
    auto keyboard = supported(0);
    keyboard.usage = 0x06;
    auto other_page = supported(0);
    other_page.usage_page = 0x0C;
    auto mixed = supported(0);  // the vendor of one row with the product of another
    mixed.product_id = supported(2).product_id;
    const struct {
        std::vector<fake_hidapi::interface_t> attached;
        bool refuses_to_start;
        std::string out;
    } cases[] = {
        {{}, false, "[]\n"},
        {{keyboard, other_page, mixed}, false, "[]\n"},
        {{keyboard, supported(4)}, false, "[1]\n"},
        {{supported(2), {0xFFFE, 0x0001}, supported(0), supported(0)}, false, "[1]\n"},
        {{supported(0)}, true, "[]\n"},
    };
    for (const auto& [attached, refuses_to_start, out] : cases) {
        fake_hidapi::attached = attached;
        fake_hidapi::refuses_to_start = refuses_to_start;
        EXPECT_EQ(outcome_of([] { return query_manager_t("p").run("list-mice", {}); }),
                  (outcome_t{0, out, ""}));
        EXPECT_EQ(fake_hidapi::sessions_open, 0U);
    }
}
