#pragma once

#include <spdlog/spdlog.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

namespace utils {

// The program's loggers; each value is an index into the logger table.
enum loggers_e : std::size_t {
    app = 0,
    nb_logger_last_in_enum,  // how many there are; never a logger
};

enum class sink_e {
    file,     // the rotating log file (config_t::get_log_data_path())
    console,  // standard output, coloured when it is a terminal
};

using logger_table_t = std::array<std::shared_ptr<spdlog::logger>, nb_logger_last_in_enum>;

// Gives the "app" logger exactly one sink of the given kind, lets every level through and flushes
// every 2 seconds from a thread of the logging library. `name` stands in every line. Call once,
// before other threads log. Throws as create_sink, and spdlog::spdlog_ex when it is called again.
void init_log(std::string_view name, sink_e sink);

// A new sink of the given kind with the program's line format. `name` goes into a pattern of the
// logging library, where a '%' begins a flag; `level` is the sink's threshold. The file is opened
// here. Throws std::invalid_argument for a number that is no kind and, for the file,
// std::runtime_error ("HOME not set") and spdlog::spdlog_ex (it cannot be opened). Any thread.
std::shared_ptr<spdlog::sinks::sink> create_sink(sink_e kind, std::string_view name,
                                                 spdlog::level::level_enum level);

// The process's loggers, created without sinks on first use: what is logged before init_log is
// dropped. The table lives to the end of the process and is not changed after init_log. Any thread.
logger_table_t& logger_list();

// Creates the logger `id` in its slot. Throws std::runtime_error when it is there already and
// std::out_of_range when there is no such slot.
void fill_as_sorted_logger_list(logger_table_t& table, loggers_e id);

// A new table with one new logger for each id.
// Throws std::runtime_error for nb_logger_last_in_enum and for an id that is given twice, and
// std::out_of_range for any other value that is no logger.
template <typename... ids_t>
logger_table_t create_all_logger(ids_t... ids) {
    logger_table_t table;
    // Without an id nothing calls it.
    [[maybe_unused]] const auto create = [&table](loggers_e id) {
        if (id == nb_logger_last_in_enum) {
            throw std::runtime_error("nb_logger_last_in_enum is not a viable logger to create");
        }
        fill_as_sorted_logger_list(table, id);
    };
    (create(ids), ...);
    return table;
}

// The logger's name, empty for a value that is no logger.
std::string get_name(loggers_e id);

// Throws std::out_of_range for a value that is no logger, as does every function below that
// takes an id. Any thread, as for the four functions of the levels.
std::shared_ptr<spdlog::logger> get_logger_runtime(loggers_e id);

spdlog::level::level_enum get_log_level(loggers_e id);
std::unordered_map<loggers_e, spdlog::level::level_enum> get_all_log_level();
void set_log_level(loggers_e id, spdlog::level::level_enum level);
void set_all_log_level(spdlog::level::level_enum level);

// Changing sinks is not synchronised with logging: only while no other thread logs.
void add_logger_sinks(loggers_e id, std::shared_ptr<spdlog::sinks::sink> sink);
void set_logger_sinks(loggers_e id, std::shared_ptr<spdlog::sinks::sink> sink);
void set_logger_sinks(loggers_e id,
                      std::initializer_list<std::shared_ptr<spdlog::sinks::sink>> sinks);
void add_all_logger_sinks(const std::shared_ptr<spdlog::sinks::sink>& sink);
void set_all_logger_sinks(const std::shared_ptr<spdlog::sinks::sink>& sink);
void set_all_logger_sinks(std::initializer_list<std::shared_ptr<spdlog::sinks::sink>> sinks);

}  // namespace utils

// One line through the "app" logger, with the place of the call. Any thread. What the logging
// library raises is reported on standard error, not thrown.
#define QLX_LOG(level, ...) \
    SPDLOG_LOGGER_CALL(::utils::logger_list()[::utils::app], level, __VA_ARGS__)
#define QLX_LOG_INFO(...) QLX_LOG(spdlog::level::info, __VA_ARGS__)
#define QLX_LOG_WARNING(...) QLX_LOG(spdlog::level::warn, __VA_ARGS__)
#define QLX_LOG_ERROR(...) QLX_LOG(spdlog::level::err, __VA_ARGS__)
