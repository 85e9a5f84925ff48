#include "macos/query_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <stdexcept>

#include "macos/device_mappings.h"
#include "macos/query_manager_mice.h"
#include "support/fake_hidapi.h"

namespace {

struct outcome_t {
    int code;
    std::string out;
    std::string error;
};

template <typename call_t>
outcome_t outcome_of(const call_t& call) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    outcome_t outcome{};
    outcome.code = call();
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.error = testing::internal::GetCapturedStderr();
    return outcome;
}

outcome_t run(const query_manager_t& queries, const std::string& name,
              const std::vector<std::string>& arguments = {}) {
    return outcome_of([&] { return queries.run(name, arguments); });
}

fake_hidapi::interface_t supported(std::size_t row) {
    return {static_cast<unsigned short>(device_mappings[row].vendor_id),
            static_cast<unsigned short>(device_mappings[row].product_id)};
}

std::string sorted_alias_lines(const std::string& usage) {
    const auto at = usage.find("\nAlias:\n");
    std::istringstream lines(usage.substr(at + 8));
    std::vector<std::string> sorted;
    for (std::string line; std::getline(lines, line);) {
        sorted.push_back(line);
    }
    std::sort(sorted.begin(), sorted.end());
    std::string text;
    for (const auto& line : sorted) {
        text += line + "\n";
    }
    return text;
}

}  // namespace

TEST(query_manager, usage_lists_commands_by_name_and_then_the_aliases) {
    query_manager_t queries("/opt/QlxDaemon");
    EXPECT_TRUE(queries.add("check-rights", nullptr, "Displays macOS rights status (JSON)"));
    EXPECT_TRUE(queries.add("help-", nullptr, ""));

    const auto help = run(queries, "help", {"ignored"});
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.error, "");
    EXPECT_EQ(help.out.substr(0, help.out.find("\nAlias:\n")),
              "Usage: /opt/QlxDaemon --request <command> [args...]\n\n"
              "Available commands:\n"
              "  check-rights — Displays macOS rights status (JSON)\n"
              "  help — Displays this help\n"
              "  help-\n"
              "  list-mice — Lists all detected mice (JSON)\n"
              "  version — Displays the version\n");
    EXPECT_EQ(sorted_alias_lines(help.out), "  -h -> help\n  ls -> list-mice\n");
    EXPECT_EQ(run(queries, "-h").out, help.out);

    std::ostringstream other;
    queries.print_usage(other, "other");
    EXPECT_EQ(other.str().substr(0, 35), "Usage: other --request <command> [a");
}

TEST(query_manager, version_carries_the_build_date_in_the_compilers_form) {
    const auto version = run(query_manager_t("p"), "version");
    EXPECT_EQ(version.code, 0);
    const std::string start = "QLX Query v1.0.0\nBuild: ";
    ASSERT_EQ(version.out.substr(0, start.size()), start);
    std::string form = version.out.substr(start.size());
    for (char& c : form) {
        const auto byte = static_cast<unsigned char>(c);
        c = std::isdigit(byte) ? '9' : std::isupper(byte) ? 'A' : std::islower(byte) ? 'a' : c;
    }
    EXPECT_TRUE(form == "Aaa 99 9999 99:99:99\n" || form == "Aaa  9 9999 99:99:99\n") << form;
}

TEST(query_manager, names_match_exactly) {
    const query_manager_t queries("p");
    for (const std::string name : {"LIST-MICE", "list", "", "--request", "check-rights"}) {
        const auto outcome = run(queries, name);
        EXPECT_EQ(outcome.code, 1) << name;
        EXPECT_EQ(outcome.out, "") << name;
        EXPECT_EQ(outcome.error, "Error: unknown command '" + name + "'\n");
        EXPECT_FALSE(queries.contains(name)) << name;
    }
    EXPECT_TRUE(queries.contains("ls"));
    EXPECT_TRUE(queries.contains("list-mice"));
}

TEST(query_manager, first_registration_of_a_name_stays) {
    query_manager_t queries("p");
    const auto answering = [](int code) {
        return [code](const std::vector<std::string>&) { return code; };
    };
    EXPECT_TRUE(queries.add("a", answering(11), "first"));
    EXPECT_TRUE(queries.add("b", answering(22), ""));
    EXPECT_FALSE(queries.add("a", answering(33), "second"));
    EXPECT_EQ(queries.resolve("a")->description, "first");
    EXPECT_EQ(run(queries, "a").code, 11);

    EXPECT_TRUE(queries.add_alias("x", "a"));
    EXPECT_TRUE(queries.add_alias("x", "b"));
    EXPECT_EQ(run(queries, "x").code, 11);

    EXPECT_FALSE(queries.add_alias("y", "later"));
    EXPECT_FALSE(queries.add_alias("z", "x")) << "an alias is no command";
    EXPECT_TRUE(queries.add("later", answering(44), ""));
    EXPECT_FALSE(queries.contains("y"));

    // A name that is both is the alias.
    EXPECT_TRUE(queries.add("x", answering(55), ""));
    EXPECT_EQ(run(queries, "x").code, 11);
}

TEST(query_manager, handler_gets_its_arguments_and_may_call_the_manager) {
    query_manager_t queries("p");
    std::vector<std::string> seen;
    queries.add(
        "nest",
        [&](const std::vector<std::string>& arguments) {
            seen = arguments;
            queries.add(
                "made", [](const std::vector<std::string>&) { return 7; }, "");
            return queries.run("made", {});
        },
        "");
    EXPECT_EQ(run(queries, "nest", {"one", "", "three"}).code, 7);
    EXPECT_EQ(seen, (std::vector<std::string>{"one", "", "three"}));
}

TEST(query_manager, what_a_handler_throws_becomes_a_message) {
    query_manager_t queries("p");
    queries.add(
        "bad",
        [](const std::vector<std::string>&) -> int { throw std::runtime_error("no such luck"); },
        "");
    queries.add_alias("worse", "bad");
    queries.add("none", nullptr, "");
    queries.add(
        "odd", [](const std::vector<std::string>&) -> int { throw 5; }, "");

    const auto outcome = run(queries, "worse");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.error, "Error: exception in handler 'worse': no such luck\n");
    EXPECT_EQ(run(queries, "none").code, 1);
    EXPECT_THROW(queries.run("odd", {}), int);
}

TEST(query_manager, answers_are_compact_and_null_is_an_error) {
    const auto answer = [](const nlohmann::json& value) {
        return outcome_of([&] { return print_answer(value, "some_source()"); });
    };
    const auto rights = answer({{"input_monitoring", false}, {"accessibility", true}});
    EXPECT_EQ(rights.code, 0);
    EXPECT_EQ(rights.out, "{\"accessibility\":true,\"input_monitoring\":false}\n");

    const auto null = answer(nullptr);
    EXPECT_EQ(null.code, 1);
    EXPECT_EQ(null.out, "");
    EXPECT_EQ(null.error, "Error: some_source() returned NULL\n");
}

TEST(list_mice, supported_models_are_listed_once_in_the_order_of_the_devices) {
    auto keyboard = supported(0);
    keyboard.usage = 0x06;
    auto other_page = supported(0);
    other_page.usage_page = 0x0C;
    // The vendor of one row with the product of another.
    auto mixed = supported(0);
    mixed.product_id = supported(2).product_id;

    const struct {
        std::vector<fake_hidapi::interface_t> attached;
        std::string out;
    } cases[] = {
        {{}, "[]\n"},
        {{{0xFFFE, 0x0001}}, "[]\n"},
        {{keyboard, other_page, mixed}, "[]\n"},
        {{keyboard, supported(4)}, "[1]\n"},
        {{supported(2), {0xFFFE, 0x0001}, supported(0), supported(0)}, "[1]\n"},
    };
    const query_manager_t queries("p");
    for (const auto& [attached, out] : cases) {
        fake_hidapi::attach(attached);
        const auto outcome = run(queries, "list-mice");
        EXPECT_EQ(outcome.code, 0);
        EXPECT_EQ(outcome.out, out);
        EXPECT_EQ(run(queries, "ls").out, out);
        EXPECT_EQ(fake_hidapi::lists_open(), 0U);
        EXPECT_EQ(fake_hidapi::sessions_open(), 0U);
    }
}

TEST(list_mice, hid_library_that_does_not_start_gives_an_empty_list) {
    fake_hidapi::attach({supported(0)});
    fake_hidapi::refuse_to_start();
    const auto outcome = run(query_manager_t("p"), "list-mice");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "[]\n");
    EXPECT_EQ(outcome.error, "");
}
