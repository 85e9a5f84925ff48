#include "common/log/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t line_size = 102'400;
constexpr std::size_t file_limit = 5'242'880;

std::string content(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The text with every digit as '#', and every line number of a source file as a single one.
std::string shape(const std::string& text) {
    std::string all;
    for (const char c : text) {
        const bool is_digit = c >= '0' && c <= '9';
        if (!is_digit || !all.ends_with(".cpp:#")) {
            all += is_digit ? '#' : c;
        }
    }
    return all;
}

}  // namespace

TEST(log, lines_reach_a_rotating_file_by_themselves_in_the_programs_format) {
    const temporary_home_t home;  // without the folder of the logs
    utils::init_log("QlxDaemon", utils::sink_e::file);
    QLX_LOG_ERROR("value {}", 7);
    const auto give_up = std::chrono::steady_clock::now() + 20s;
    while (content(home.log_file()).find("value") == std::string::npos &&
           std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(shape(content(home.log_file())),
              "[##:##:##.###] [I] [app] [QlxDaemon:log.cpp:#] Logger init success\n"
              "[##:##:##.###] [E] [app] [QlxDaemon:log_test.cpp:#] value #\n");
    EXPECT_EQ(utils::get_log_level(utils::app), spdlog::level::trace);

    // And the file rotates at 5 MiB and keeps three backups.
    const std::string long_text(line_size, '.');
    for (int line = 0; line < 300; ++line) {  // about 30 MiB: five rotations
        QLX_LOG_INFO("{} {}", line, long_text);
    }
    utils::get_logger_runtime(utils::app)->flush();
    std::vector<std::string> names;
    for (const auto& file : fs::directory_iterator(home.log_file().parent_path())) {
        names.push_back(file.path().filename().string());
        EXPECT_LE(file.file_size(), file_limit) << names.back();
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"QlxDaemon.1.log", "QlxDaemon.2.log",
                                               "QlxDaemon.3.log", "QlxDaemon.log"}));
    EXPECT_NE(content(home.log_file()).find("] 299 "), std::string::npos);
    const auto backup = content(home.log_file().parent_path() / "QlxDaemon.1.log");
    EXPECT_GT(backup.size(), file_limit - 2 * line_size);
}

TEST(log, the_console_gets_the_same_format_and_nothing_from_before_it_is_set_up) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    QLX_LOG_ERROR("nobody hears {}", "this");
    utils::init_log("query", utils::sink_e::console);
    // Without colours, for it is no terminal.
    EXPECT_EQ(shape(testing::internal::GetCapturedStdout()),
              "[##:##:##.###] [I] [app] [query:log.cpp:#] Logger init success\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
