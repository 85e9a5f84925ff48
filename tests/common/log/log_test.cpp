#include "common/log/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/log_capture.h"
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
        if (c < '0' || c > '9') {
            all += c;
        } else if (!all.ends_with(".cpp:#")) {
            all += '#';
        }
    }
    return all;
}

template <typename error_t>
std::string error_of(const std::function<void()>& call) {
    try {
        call();
    } catch (const error_t& error) {
        return error.what();
    }
    return "nothing thrown";
}

}  // namespace

TEST(log, lines_reach_the_file_by_themselves_in_the_programs_format) {
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
    EXPECT_EQ(utils::get_logger_runtime(utils::app)->flush_level(), spdlog::level::off);
}

TEST(log, the_file_rotates_at_5_mib_and_keeps_three_backups) {
    const temporary_home_t home;
    utils::init_log("QlxDaemon", utils::sink_e::file);
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

TEST(log, the_console_gets_the_same_format_without_colours_when_it_is_no_terminal) {
    testing::internal::CaptureStdout();
    utils::init_log("query", utils::sink_e::console);
    const auto output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(shape(output), "[##:##:##.###] [I] [app] [query:log.cpp:#] Logger init success\n");
}

TEST(log, a_file_that_cannot_be_made_is_an_error) {
    const temporary_home_t home;
    std::ofstream(home.path() / "Library") << "in the way";
    const auto init = [] { utils::init_log("QlxDaemon", utils::sink_e::file); };
    EXPECT_THROW(init(), spdlog::spdlog_ex);
    unsetenv("HOME");
    EXPECT_EQ(error_of<std::runtime_error>(init), "HOME not set");
}

TEST(log, before_it_is_set_up_lines_are_dropped) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    QLX_LOG_ERROR("nobody hears {}", "this");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(utils::get_all_log_level(),
              (std::unordered_map<utils::loggers_e, spdlog::level::level_enum>{
                  {utils::app, spdlog::level::info}}));
}

TEST(log, wrong_loggers_are_errors) {
    constexpr auto count = utils::nb_logger_last_in_enum;
    EXPECT_EQ(utils::get_name(utils::app), "app");
    EXPECT_EQ(utils::get_name(count), "");
    EXPECT_EQ(error_of<std::out_of_range>([] { utils::get_logger_runtime(count); }), "array::at");
    EXPECT_EQ(error_of<std::out_of_range>([] { utils::set_log_level(count, {}); }), "array::at");
    EXPECT_EQ(error_of<std::out_of_range>([] {
                  utils::logger_table_t table;
                  utils::fill_as_sorted_logger_list(table, count);
              }),
              "array::at");
    EXPECT_EQ(error_of<std::runtime_error>([] { utils::create_all_logger(count); }),
              "nb_logger_last_in_enum is not a viable logger to create");
    EXPECT_EQ(
        error_of<std::runtime_error>([] { utils::create_all_logger(utils::app, utils::app); }),
        "Duplicate logger created");
}
