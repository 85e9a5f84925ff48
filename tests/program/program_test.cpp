#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "program/daemon_process.h"
#include "support/temporary_home.h"

namespace {

namespace fs = std::filesystem;

class program : public testing::Test {
  protected:
    program() { fs::create_directories(disk() / "Applications" / "QlxControlCenter.app"); }

    fs::path disk() const { return home.path() / "disk"; }
    fs::path rights_file() const { return home.user_data() / "qlx_daemon_rights.json"; }
    std::string log() const { return text_of(home.log_file()); }

    daemon_process_t start(std::vector<std::string> arguments = {}, bool with_home = true) const {
        return {home.path(),
                std::move(arguments),
                {{"HOME", with_home ? home.path().string() : ""},
                 {"QLX_DESKTOP_ROOT", disk().string()}}};
    }

    // Whether the texts stand in the log in this order.
    bool log_tells(const std::vector<std::string>& texts) const {
        const std::string all = log();
        std::size_t at = 0;
        return std::all_of(texts.begin(), texts.end(), [&](const std::string& text) {
            at = all.find(text, at);
            return at != std::string::npos;
        });
    }

    const temporary_home_t home;
};

const std::string usage =
    " --request <command> [args...]\n\n"
    "Available commands:\n"
    "  check-rights — Displays macOS rights status (JSON)\n"
    "  help — Displays this help\n"
    "  list-mice — Lists all detected mice (JSON)\n"
    "  version — Displays the version\n"
    "\nAlias:\n";

// The text with each digit as 0 and each capital letter as A.
std::string shape_of(std::string text) {
    for (char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        c = std::isdigit(byte) != 0 ? '0' : std::isupper(byte) != 0 ? 'A' : c;
    }
    return text;
}

TEST_F(program, answers_queries_and_leaves_nothing_behind) {
    struct case_t {
        std::vector<std::string> arguments;
        std::string output;
        std::string errors;
        int code;
    };
    const std::string rights = "{\"accessibility\":false,\"input_monitoring\":false}\n";
    for (const case_t& one : std::vector<case_t>{
             {{"check-rights"}, rights, "", 0},
             {{"--request", "check-rights", "extra"}, rights, "", 0},
             {{"list-mice"}, "[]\n", "", 0},
             {{"ls"}, "[]\n", "", 0},
             {{"LIST-MICE"}, "", "Error: unknown command 'LIST-MICE'\n", 1},
             {{"--request"}, "", "Error: unknown command '--request'\n", 1},
             {{"--request", ""}, "", "Error: unknown command ''\n", 1},
         }) {
        for (const bool with_home : {true, false}) {
            auto process = start(one.arguments, with_home);
            EXPECT_EQ(process.wait_for_exit(), one.code) << one.arguments.back();
            EXPECT_EQ(process.output(), one.output);
            EXPECT_EQ(process.errors(), one.errors);
        }
    }
    {
        auto process = start({"version"}, false);
        EXPECT_EQ(process.wait_for_exit(), 0);
        const std::string output = process.output();
        const std::string first = "QLX Query v1.0.0\nBuild: ";
        ASSERT_EQ(output.rfind(first, 0), 0U) << output;
        std::string built = shape_of(output.substr(first.size()));
        ASSERT_EQ(built.size(), std::string_view("Aaa 00 0000 00:00:00\n").size()) << output;
        built.replace(0, 5, "Aaa 0");  // the month's name, and a day that may have one digit
        EXPECT_EQ(built, "Aaa 00 0000 00:00:00\n");
    }
    for (const std::string name : {"help", "-h"}) {
        auto process = start({name});
        EXPECT_EQ(process.wait_for_exit(), 0);
        const std::string output = process.output();
        EXPECT_EQ(output.rfind("Usage: QlxDaemon" + usage, 0), 0U) << output;
        EXPECT_NE(output.find("  ls -> list-mice\n"), std::string::npos);
        EXPECT_NE(output.find("  -h -> help\n"), std::string::npos);
    }
    EXPECT_FALSE(fs::exists(home.path() / "Library"));
}

TEST_F(program, runs_as_the_daemon_after_a_syntax_error) {
    auto process = start({"list-mice", "now"});
    ASSERT_TRUE(process.wait_until_running());
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait_for_exit(), 1);
    EXPECT_EQ(process.errors(), "Error: incorrect syntax\n\n");
    EXPECT_EQ(process.output().rfind("Usage: QlxDaemon" + usage, 0), 0U);
}

TEST_F(program, says_that_home_is_not_set) {
    auto process = start({}, false);
    EXPECT_EQ(process.wait_for_exit(), 1);
    EXPECT_EQ(process.errors(), "Error: HOME not set\n");
}

TEST_F(program, ends_in_order_on_each_signal_but_not_on_sigpipe) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        fs::remove(home.log_file());
        auto process = start();
        ASSERT_TRUE(process.wait_until_running());
        EXPECT_EQ(text_of(rights_file()),
                  "{\n    \"accessibility\": true,\n    \"input_monitoring\": true\n}");
        process.signal(SIGPIPE);
        const auto begin = std::chrono::steady_clock::now();
        process.signal(signal);
        EXPECT_EQ(process.wait_for_exit(), 1);
        // Half a second for the quit timer and one for the permission guard's sleep; the rest is
        // room for a busy machine.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
        EXPECT_TRUE(log_tells(
            {"[I] [app] [QlxDaemon:log.cpp:", "Logger init success",
             "Using user directory: ", "Failed to open config file: ", "Input Monitoring granted.",
             "Rights status written to ", "All required permissions granted, starting daemon.",
             "[E] [app] [QlxDaemon:run_daemon.cpp:",
             "Ending on signal " + std::to_string(signal) + "\n", "Daemon stopped\n",
             "Uninstall watcher stopped", "Uninstall quit", "Config watcher loop exit: "}))
            << log();
        EXPECT_EQ(process.errors(), "");  // nothing that the desktop lent is left behind
    }
}

TEST_F(program, refuses_a_settings_file_of_wrong_types_at_the_start_only) {
    const std::string wrong = R"({"appState": [{"type": "one", "appConfigs": {}}]})";
    const std::string error = "[json.exception.type_error.302] type must be number, but is string";
    home.write_settings(wrong);
    {
        auto process = start();
        EXPECT_EQ(process.wait_for_exit(), 1);
        EXPECT_EQ(process.errors(), "Error: " + error + "\n");
    }
    home.write_settings("{}");
    auto process = start();
    ASSERT_TRUE(process.wait_until_running());
    home.write_settings(wrong);
    EXPECT_TRUE(wait_until([&] { return log_tells({"Config callback threw: " + error}); }))
        << log();
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait_for_exit(), 1);
    EXPECT_TRUE(log_tells({"Daemon stopped"}));
}

TEST_F(program, starts_with_a_settings_file_nested_a_million_levels_deep) {
    const std::size_t levels = 1000000;
    home.write_settings(std::string(levels, '[') + std::string(levels, ']'));
    auto process = start();
    ASSERT_TRUE(process.wait_until_running());
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait_for_exit(), 1);
    EXPECT_TRUE(log_tells({"Config file JSON is invalid: ", "Daemon stopped"}));
}

TEST_F(program, says_so_when_its_log_cannot_be_opened) {
    fs::create_directories(home.log_file());  // a folder in its place
    auto process = start();
    EXPECT_EQ(process.wait_for_exit(), 1);
    EXPECT_EQ(process.errors().rfind("Error: Failed opening file ", 0), 0U) << process.errors();
}

TEST_F(program, starts_and_stops_many_times_at_once_and_leaves_no_process) {
    for (int round = 0; round < 3; ++round) {
        auto first = start();
        auto second = start();
        ASSERT_TRUE(first.wait_until_running());
        ASSERT_TRUE(second.wait_until_running());
        first.signal(SIGTERM);
        second.signal(SIGTERM);
        EXPECT_EQ(first.wait_for_exit(), 1);
        EXPECT_EQ(second.wait_for_exit(), 1);
        EXPECT_EQ(kill(-first.pid(), 0), -1);  // nobody in a process group of its own
    }
    const auto entries = fs::directory_iterator(home.user_data());
    EXPECT_EQ(std::count_if(begin(entries), end(entries), [](const auto&) { return true; }), 1)
        << "only the rights file stays";
}

}  // namespace
