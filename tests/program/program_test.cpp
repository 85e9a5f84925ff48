#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <future>
#include <memory>
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

    std::unique_ptr<daemon_process_t> start_owned() const {
        static int number = 0;
        const fs::path folder = home.path() / ("daemon " + std::to_string(++number % 4));
        fs::create_directories(folder);
        return std::make_unique<daemon_process_t>(
            folder, std::vector<std::string>{},
            daemon_process_t::environment_t{{"HOME", home.path().string()},
                                            {"QLX_DESKTOP_ROOT", disk().string()}});
    }

    // Whether the texts stand in the log in this order.
    bool log_tells(const std::vector<std::string>& texts) const {
        const std::string all = log();
        std::size_t at = 0;
        return std::all_of(texts.begin(), texts.end(), [&](const std::string& text) {
            const std::size_t found = all.find(text, at);
            at = found + text.size();
            return found != std::string::npos;
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
    struct rights_t {
        std::string file;
        std::string output;
        std::string errors;
        int code;
    };
    for (const rights_t& one : std::vector<rights_t>{
             {R"({ "accessibility" : true })", "{\"accessibility\":true}\n", "", 0},
             {"{", "{}\n", "", 0},
             {"", rights, "", 0},
             {"null", "", "Error: read_rights_from_file() returned NULL\n", 1},
         }) {
        fs::create_directories(home.user_data());
        std::ofstream(rights_file()) << one.file;
        auto process = start({"check-rights"});
        EXPECT_EQ(process.wait_for_exit(), one.code);
        EXPECT_EQ(process.output(), one.output);
        EXPECT_EQ(process.errors(), one.errors);
    }
    fs::remove_all(home.path() / "Library");
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
        const std::string ls = "  ls -> list-mice\n";
        const std::string h = "  -h -> help\n";
        EXPECT_TRUE(output == "Usage: QlxDaemon" + usage + ls + h ||
                    output == "Usage: QlxDaemon" + usage + h + ls)
            << output;
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
    EXPECT_FALSE(log_tells({"Config callback threw: ", "Config callback threw: "}));
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

// More rounds by hand: QLX_ROUNDS=250 build/development/tests/program/program_test
// --gtest_filter='*many_times*'
TEST_F(program, starts_and_stops_many_times_and_leaves_nothing_but_its_files) {
    const char* const rounds = std::getenv("QLX_ROUNDS");
    for (int round = rounds == nullptr ? 3 : std::atoi(rounds); round > 0; --round) {
        const auto daemons = {start_owned(), start_owned(), start_owned(), start_owned()};
        for (const auto& daemon : daemons) {
            ASSERT_TRUE(daemon->wait_until_running());
            daemon->signal(SIGTERM);
        }
        for (const auto& daemon : daemons) {
            ASSERT_EQ(daemon->wait_for_exit(), 1);
            ASSERT_FALSE(daemon->left_anyone());
        }
    }
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(home.path() / "Library")) {
        if (!entry.is_directory() && entry.path().extension() != ".log") {
            files.push_back(entry.path().filename());
        }
    }
    EXPECT_EQ(files, std::vector<std::string>{"qlx_daemon_rights.json"});
}

// A player that is always content would make every scenario a test that cannot fail.
TEST_F(program, the_player_reports_what_does_not_come_as_expected) {
    const std::string begin = R"({"title": "t",
        "settings": {"appState": [{"type": 1, "appConfigs": {"default": {
            "3": [{"action": 19}], "4": [{"action": 6}]}}}]},
        "devices": {"mouse": {"product": "QLX Valtor Pro Bluetooth"}},
        "applications": {"Mail": {"frame": [0, 0, 10, 10]}}, "steps": [)";
    const auto click = [](const std::string& button, const std::string& expect) {
        return R"({"do": "click", "device": "mouse", "over": "Mail", "button": ")" + button +
               R"(", "expect": )" + expect + "}";
    };
    struct case_t {
        std::string rest;
        int code;
        std::string says;
    };
    const std::string keys = R"(["Command down [Command]", "C down [Command]",
                                 "C up [Command]", "Command up [Command]"])";
    // Side by side: each waits for its daemon most of the time.
    std::vector<std::future<void>> played;
    for (const case_t& one : std::vector<case_t>{
             {click("side 1", R"({"keys": )" + keys + "}") + "]}", 0,
              "Everything came as expected."},
             {click("side 1", "{}") + "]}", 1,
              "at the end: keys that no step expects: Command down"},
             {click("middle", "{}") + "]}", 1, "at the end: effects that no step expects: command"},
             {click("side 1", R"({"keys": ["C down"]})") + "]}", 1, "step 1: the daemon sends "},
             {click("side 2", R"({"event": "swallowed"})") + "]}", 1,
              "step 1: side button 2 down goes to Mail; expected"},
             {R"({"do": "look", "expect": {"event": "delivered"}}]})", 1, "the step causes none"},
             {R"({"do": "look", "expect": {"effects": ["volume 0.50 → 0.60"]}}]})", 1,
              "seen on the desktop: nothing; expected volume"},
             {R"({"do": "look", "expect": {"active_model": "corvane"}}]})", 1,
              "the active model is -1; expected 2"},
             {R"({"do": "look"}], "expect": {"log": ["mice loaded", "mice loaded"]}})", 1,
              "the log does not say \"mice loaded\""},
             {R"({"do": "look"}], "expect": {"exit_code": 77}})", 1,
              "the exit code is 1; expected 77"},
             {R"({"do": "look"}], "expect": {"rights_file": "x"}})", 1, "the rights file holds: {"},
             {R"({"do": "look"}], "expect": {"uninstall_trigger": "user"}})", 1,
              "the uninstall trigger is in: none"},
             {R"({"do": "move front application"}]})", 0,
              "moves the front application to the Trash"},
             {R"({"do": "disconnect", "device": "mouse"}, {"do": "move", "device": "mouse"}]})", 2,
              "step 2: \"device\" mouse is not connected"},
         }) {
        const auto file = home.path() / (std::to_string(played.size()) + ".json");
        const auto told = fs::path(file).replace_extension("told");
        std::ofstream(file) << begin + one.rest;
        const std::string command = std::string(QLX_PLAYER " " QLX_DAEMON " ") + file.string() +
                                    " >" + told.string() + " 2>&1";
        played.push_back(std::async(std::launch::async, [command, told, one] {
            const int status = std::system(command.c_str());
            EXPECT_EQ(WEXITSTATUS(status), one.code) << one.rest;
            EXPECT_NE(text_of(told).find(one.says), std::string::npos) << one.says << "\n"
                                                                       << text_of(told);
        }));
    }
}

}  // namespace
