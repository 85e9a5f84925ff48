#include "macos/rights_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "control/input.h"
#include "control/objects.h"
#include "control/permissions.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
using lines_t = std::vector<std::string>;
using nlohmann::json;

namespace {

const json default_rights = {{"accessibility", false}, {"input_monitoring", false}};

std::string file_with(bool accessibility, bool input_monitoring) {
    const auto text = [](bool value) { return std::string(value ? "true" : "false"); };
    return "{\n    \"accessibility\": " + text(accessibility) +
           ",\n    \"input_monitoring\": " + text(input_monitoring) + "\n}";
}

struct rights_file : testing::Test {
    void put(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    std::string content() const { return temporary_home_t::content_of(path); }

    temporary_home_t home;
    const std::string path = (home.path() / "rights.json").string();
    const std::string temporary = path + ".tmp";
    log_capture_t log;
};

}  // namespace

TEST_F(rights_file, is_written_byte_for_byte_though_others_lock_the_folder_a_while) {
    const int folder = open(home.path().c_str(), O_RDONLY);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(4600));
        close(folder);
    });
    write_rights_to_file(true, false, path);
    other.join();
    EXPECT_EQ(content(), file_with(true, false));
    EXPECT_EQ(log.lines(), lines_t{"I Rights status written to " + path});
    EXPECT_FALSE(fs::exists(temporary));
    EXPECT_EQ(read_rights_from_file(path),
              (json{{"accessibility", true}, {"input_monitoring", false}}));
}

TEST_F(rights_file, what_another_hand_put_there_is_read_as_far_as_it_goes) {
    EXPECT_EQ(read_rights_from_file(path), default_rights);
    for (const bool others_there : {false, true}) {
        home.put_pipe(path, others_there);
        EXPECT_EQ(read_rights_from_file(path), default_rights);
    }
    fs::remove(path);
    EXPECT_EQ(log.lines(), lines_t{});

    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + "1" + std::string(levels, ']');
    };
    const struct {
        std::string text;
        json rights;
        bool logged;
    } cases[] = {
        {R"({"accessibility": true})", {{"accessibility", true}}, false},
        {"null", nullptr, false},
        {"[1, 2]", {1, 2}, false},
        {"", default_rights, true},
        {"{", json::object(), true},
        {R"({"accessibility": true, "input_monitoring": fal)",
         {{"accessibility", true}, {"input_monitoring", nullptr}},
         true},
        {"[1, 1e999]", json::array({1}), true},
        {R"({"accessibility": true} {})", {{"accessibility", true}}, true},
        {nested(64), json::parse(nested(64)), false},
        {nested(65), default_rights, true},
        {std::string(1'000'000, '['), default_rights, true},
        {"1" + std::string(1'048'575, ' '), 1, false},
        {"1" + std::string(1'048'576, ' '), default_rights, true},
    };
    for (const auto& [text, rights, logged] : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        log.forget();
        put(text);
        EXPECT_EQ(read_rights_from_file(path), rights);
        ASSERT_EQ(log.lines().size(), logged ? 1U : 0U);
        if (logged) {
            EXPECT_EQ(log.lines()[0].rfind("E Failed to read rights status from " + path + ": ", 0),
                      0U);
        }
    }
}

TEST_F(rights_file, failure_on_the_way_leaves_the_old_file_and_no_temporary_one) {
    fs::current_path(home.path());
    const std::string failed = "E Failed to write rights status to " + path + ": ";
    const std::string not_opened = "E Cannot open temp file ";
    struct case_t {
        std::function<void()> arrange;
        std::string path;  // empty: there is no home folder
        std::string line;  // the start of the only one
    };
    const std::string beyond = temporary + "/rights.json";
    const auto limit_files = [](rlim_t bytes) {
        const rlimit limit{bytes, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    std::signal(SIGXFSZ, SIG_IGN);
    const std::vector<case_t> cases{
        {[] {}, "", not_opened + ".tmp"},
        {[&] { home.put_pipe(temporary, true); }, path, not_opened + temporary},
        {[&] { home.put_pipe(temporary, false); }, path, not_opened + temporary},
        {[] {}, beyond, not_opened + beyond + ".tmp"},
        {[&] { fs::remove(temporary), limit_files(8); }, path, failed},
        {[&] { limit_files(RLIM_INFINITY), fs::remove(path), fs::create_directories(path + "/x"); },
         path, failed},
    };
    put("old");
    for (const auto& [arrange, where, line] : cases) {
        arrange();
        log.forget();
        write_rights_to_file(true, true, where);
        ASSERT_EQ(log.lines().size(), 1U);
        EXPECT_EQ(log.lines()[0].rfind(line, 0), 0U) << log.lines()[0];
        EXPECT_TRUE(fs::is_directory(path) || content() == "old");
        EXPECT_FALSE(fs::is_regular_file(temporary));
        EXPECT_FALSE(fs::exists(".tmp"));
    }
    EXPECT_EQ(read_rights_from_file(""), default_rights);
    EXPECT_EQ(read_rights_from_file(path), default_rights);
}

// Two processes write without a pause and are killed at random moments, hundreds of times. Whatever
// is read meanwhile must be one of the four files that they write.
TEST_F(rights_file, readers_see_whole_files_while_writers_are_killed) {
    constexpr int kills = 400;
    const std::set<std::string> whole{file_with(false, false), file_with(false, true),
                                      file_with(true, false), file_with(true, true)};
    utils::set_all_log_level(spdlog::level::off);
    write_rights_to_file(false, false, path);
    const auto start_writer = [&](bool accessibility) {
        const pid_t child = fork();
        if (child == 0) {
            for (bool input_monitoring = false;; input_monitoring = !input_monitoring) {
                write_rights_to_file(accessibility, input_monitoring, path);
            }
        }
        return child;
    };
    std::array<pid_t, 2> writers{start_writer(false), start_writer(true)};
    std::mt19937 random(1);
    std::set<std::string> seen;
    for (int i = 0; i < kills; ++i) {
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 4000);
        do {
            const auto file = content();
            EXPECT_EQ(whole.count(file), 1U) << "a torn file: " << file;
            EXPECT_EQ(read_rights_from_file(path).size(), 2U);
            seen.insert(file);
        } while (std::chrono::steady_clock::now() < end);
        auto& writer = writers[static_cast<std::size_t>(i) % writers.size()];
        ASSERT_EQ(kill(writer, SIGKILL), 0);
        ASSERT_EQ(waitpid(writer, nullptr, 0), writer);
        writer = start_writer(i % 2 != 0);
    }
    for (const pid_t writer : writers) {
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
    }
    EXPECT_EQ(seen.size(), whole.size());

    // What a killed writer left behind is in nobody's way.
    write_rights_to_file(true, false, path);
    EXPECT_EQ(content(), file_with(true, false));
}

TEST(permission_checks, a_check_that_cannot_be_made_is_a_missing_permission) {
    using simulator::permission_e;
    simulator::revoke(permission_e::input_monitoring);
    EXPECT_TRUE(check_input_monitoring()) << "nothing to open";
    const auto keyboard = simulator::connect({.name = "keyboard", .pointer = {{1, 6}}});
    EXPECT_FALSE(check_input_monitoring());
    simulator::grant(permission_e::input_monitoring);
    EXPECT_TRUE(check_input_monitoring());
    simulator::seize(keyboard);
    EXPECT_FALSE(check_input_monitoring());
    simulator::let_go(keyboard);
    for (const auto function :
         {"IOHIDManagerCreate", "CFNumberCreate", "CFDictionaryCreate", "CFArrayCreate"}) {
        simulator::fail_next(function);
        EXPECT_FALSE(check_input_monitoring()) << function;
    }
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(!check_accessibility() && check_input_monitoring());
    EXPECT_EQ(simulator::objects_alive(), lines_t{});
}
