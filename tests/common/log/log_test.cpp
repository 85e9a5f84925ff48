#include "common/log/log.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/null_sink.h>

#include <map>

#include "support/error_text.h"
#include "support/temporary_home.h"
#include "support/wait_until.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

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

}  // namespace

TEST(log, lines_reach_a_rotating_file_by_themselves_in_the_programs_format) {
    const temporary_home_t home;
    const auto written = [&] { return home.content_of(home.log_file()); };
    fs::create_directories(home.log_file().parent_path());
    std::ofstream(home.log_file()) << "of an earlier start\n";
    utils::init_log("QlxDaemon", utils::sink_e::file);
    EXPECT_EQ(utils::get_log_level(utils::app), spdlog::level::trace);
    QLX_LOG_ERROR("value {}", 7);
    EXPECT_EQ(written(), "of an earlier start\n");
    EXPECT_TRUE(wait_until([&] { return written().size() > 100; }, 6s));
    EXPECT_EQ(shape(written()),
              "of an earlier start\n"
              "[##:##:##.###] [I] [app] [QlxDaemon:log.cpp:#] Logger init success\n"
              "[##:##:##.###] [E] [app] [QlxDaemon:log_test.cpp:#] value #\n");

    // And the file rotates at 5 MiB, which has room for 51 of these lines, and keeps three backups.
    for (int number = 0; number < 300; ++number) {
        QLX_LOG_INFO("{}", std::string(102'400, '.'));
    }
    utils::get_logger_runtime(utils::app)->flush();
    std::map<std::string, std::uintmax_t> lines;
    for (const auto& file : fs::directory_iterator(home.log_file().parent_path())) {
        lines[file.path().filename()] = file.file_size() / 102'400;
    }
    EXPECT_EQ(lines, (std::map<std::string, std::uintmax_t>{{"QlxDaemon.1.log", 51},
                                                            {"QlxDaemon.2.log", 51},
                                                            {"QlxDaemon.3.log", 51},
                                                            {"QlxDaemon.log", 45}}));
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
    EXPECT_THROW(utils::init_log("query", utils::sink_e::console), spdlog::spdlog_ex);
}

TEST(log, levels_and_sinks_are_those_that_were_set) {
    using namespace utils;
    using sinks_t = std::vector<spdlog::sink_ptr>;
    const spdlog::sink_ptr one = std::make_shared<spdlog::sinks::null_sink_mt>();
    const spdlog::sink_ptr two = create_sink(sink_e::console, "query", spdlog::level::warn);
    EXPECT_EQ(two->level(), spdlog::level::warn);
    const auto& sinks = get_logger_runtime(app)->sinks();
    EXPECT_EQ(sinks, sinks_t{});
    add_logger_sinks(app, one);
    add_all_logger_sinks(two);
    EXPECT_EQ(sinks, (sinks_t{one, two}));
    set_logger_sinks(app, {two, one});
    EXPECT_EQ(sinks, (sinks_t{two, one}));
    set_logger_sinks(app, one);
    EXPECT_EQ(sinks, sinks_t{one});
    set_all_logger_sinks({one, two});
    EXPECT_EQ(sinks, (sinks_t{one, two}));
    set_all_logger_sinks(two);
    EXPECT_EQ(sinks, sinks_t{two});

    EXPECT_EQ(get_log_level(app), spdlog::level::info);
    set_log_level(app, spdlog::level::err);
    EXPECT_EQ(get_all_log_level(), (decltype(get_all_log_level()){{app, spdlog::level::err}}));
    set_all_log_level(spdlog::level::debug);
    EXPECT_EQ(get_log_level(app), spdlog::level::debug);

    const auto count = nb_logger_last_in_enum;
    EXPECT_EQ(get_name(app) + get_name(count), "app");
    EXPECT_EQ(create_all_logger(app)[app]->name(), "app");
    EXPECT_EQ(error_text([] { create_all_logger(app, app); }), "Duplicate logger created");
    EXPECT_EQ(error_text([&] { create_all_logger(count); }),
              "nb_logger_last_in_enum is not a viable logger to create");
    EXPECT_EQ(error_text([] { create_all_logger(static_cast<loggers_e>(2)); }), "array::at");
    EXPECT_EQ(error_text([&] { get_log_level(count); }), "array::at");
    EXPECT_EQ(error_text([] { create_sink(static_cast<sink_e>(2), "", {}); }), "no such sink");
}
