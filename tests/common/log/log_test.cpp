#include "common/log/log.h"

#include <spdlog/sinks/null_sink.h>

#include "support/test.h"

namespace fs = std::filesystem;

namespace {

// The text with every digit as '#', and every line number of a source file as a single one.
std::string shape(const std::string& text) {
    std::string shape;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit || !shape.ends_with("cpp:#")) {
            shape += digit ? '#' : c;
        }
    }
    return shape;
}

}  // namespace

TEST(log, lines_reach_a_rotating_file_by_themselves_in_the_programs_format) {
    const temporary_home_t home;
    const auto written = [&] { return home.content_of(home.log_file()); };
    fs::create_directories(home.log_file().parent_path());
    std::ofstream(home.log_file()) << "of an earlier start\n";
    utils::init_log("QlxDaemon", utils::sink_e::file);
    QLX_LOG_ERROR("value {}", 7);
    EXPECT_EQ(written(), "of an earlier start\n");
    EXPECT_TRUE(wait_until([&] { return written().size() > 100; }, std::chrono::seconds(6)));
    EXPECT_EQ(shape(written()),
              "of an earlier start\n"
              "[##:##:##.###] [I] [app] [QlxDaemon:log.cpp:#] Logger init success\n"
              "[##:##:##.###] [E] [app] [QlxDaemon:log_test.cpp:#] value #\n");

    // And the file rotates at 5 MiB, which has room for 51 of these lines, and keeps three backups.
    for (int number = 0; number < 300; ++number) {
        QLX_LOG_INFO("{}", std::string(102'400, '.'));
    }
    utils::get_logger_runtime(utils::app)->flush();
    std::set<std::string> files;
    for (const auto& file : fs::directory_iterator(home.log_file().parent_path())) {
        const auto lines = std::to_string(file.file_size() / 102'400);
        files.insert(file.path().filename().string() + " " + lines);
    }
    EXPECT_EQ(files, (std::set<std::string>{"QlxDaemon.1.log 51", "QlxDaemon.2.log 51",
                                            "QlxDaemon.3.log 51", "QlxDaemon.log 45"}));
}

TEST(log, the_console_gets_the_same_format_and_levels_and_sinks_are_those_that_were_set) {
    using namespace utils;
    using sinks_t = std::vector<spdlog::sink_ptr>;
    testing::internal::CaptureStdout();
    QLX_LOG_ERROR("nobody hears {}", "this");
    init_log("query", sink_e::console);
    // Without colours, for it is no terminal.
    EXPECT_EQ(shape(testing::internal::GetCapturedStdout()),
              "[##:##:##.###] [I] [app] [query:log.cpp:#] Logger init success\n");
    EXPECT_THROW(init_log("query", sink_e::console), spdlog::spdlog_ex);
    EXPECT_EQ(get_log_level(app), spdlog::level::trace);

    const spdlog::sink_ptr one = std::make_shared<spdlog::sinks::null_sink_mt>();
    const spdlog::sink_ptr two = create_sink(sink_e::console, "query", spdlog::level::warn);
    EXPECT_EQ(two->level(), spdlog::level::warn);
    const auto& sinks = get_logger_runtime(app)->sinks();
    set_logger_sinks(app, one);
    add_logger_sinks(app, two);
    add_all_logger_sinks(one);
    EXPECT_EQ(sinks, (sinks_t{one, two, one}));
    set_logger_sinks(app, {two, one});
    EXPECT_EQ(sinks, (sinks_t{two, one}));
    set_all_logger_sinks({one, two});
    EXPECT_EQ(sinks, (sinks_t{one, two}));

    set_log_level(app, spdlog::level::err);
    EXPECT_EQ(get_all_log_level(), (decltype(get_all_log_level()){{app, spdlog::level::err}}));
    set_all_log_level(spdlog::level::debug);
    EXPECT_EQ(get_log_level(app), spdlog::level::debug);

    EXPECT_EQ(get_name(nb_logger_last_in_enum), "");
    EXPECT_EQ(error_text([] { create_all_logger(app, app); }), "Duplicate logger created");
    EXPECT_EQ(error_text([] { create_all_logger(nb_logger_last_in_enum); }),
              "nb_logger_last_in_enum is not a viable logger to create");
    EXPECT_EQ(error_text([] { get_log_level(nb_logger_last_in_enum); }), "array::at");
    EXPECT_EQ(error_text([] { create_sink(static_cast<sink_e>(2), "", {}); }), "no such sink");
}
