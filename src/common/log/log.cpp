#include "common/log/log.h"

#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <chrono>
#include <stdexcept>
#include <utility>

#include "common/config/config.h"

namespace utils {

namespace {

constexpr std::size_t rotated_files = 3;
constexpr bool rotate_on_open = false;  // a restart goes on in the file that is there
constexpr std::chrono::seconds flush_period{2};

// With one fixed text for the error, which the standard libraries word differently.
std::shared_ptr<spdlog::logger>& slot_of(logger_table_t& table, loggers_e id) {
    if (id >= table.size()) {
        throw std::out_of_range("array::at");
    }
    return table[id];
}

std::shared_ptr<spdlog::sinks::sink> make_sink(sink_e kind) {
    switch (kind) {
        case sink_e::file:
            return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                config_t::get_log_data_path().string(), config_t::logs_size, rotated_files,
                rotate_on_open);
        case sink_e::console:
            return std::make_shared<spdlog::sinks::ansicolor_stdout_sink_mt>(
                spdlog::color_mode::automatic);
    }
    throw std::invalid_argument("no such sink");
}

}  // namespace

void init_log(std::string_view name, sink_e sink) {
    // Neither the sink nor the logger holds anything back: the call sites decide what is logged.
    set_all_logger_sinks(create_sink(sink, name, spdlog::level::trace));
    const auto logger = get_logger_runtime(app);
    logger->set_level(spdlog::level::trace);
    // The logger table is older than the logging library's registry, and so outlives it and its
    // flushing thread, which the registry joins at the end of the process.
    spdlog::register_logger(logger);
    // The only flushing while the daemon runs. No level forces one, not even an error: that would
    // put a disk write on the thread that handles the events.
    spdlog::flush_every(flush_period);
    QLX_LOG_INFO("Logger init success");
}

std::shared_ptr<spdlog::sinks::sink> create_sink(sink_e kind, std::string_view name,
                                                 spdlog::level::level_enum level) {
    auto sink = make_sink(kind);
    sink->set_pattern("%^[%H:%M:%S.%e] [%L] [%n] [" + std::string(name) + ":%s:%#] %v%$");
    sink->set_level(level);
    return sink;
}

logger_table_t& logger_list() {
    static logger_table_t table = create_all_logger(app);
    return table;
}

void fill_as_sorted_logger_list(logger_table_t& table, loggers_e id) {
    auto& slot = slot_of(table, id);
    if (slot) {
        throw std::runtime_error("Duplicate logger created");
    }
    slot = std::make_shared<spdlog::logger>(get_name(id));
}

std::string get_name(loggers_e id) {
    return id == app ? "app" : "";
}

std::shared_ptr<spdlog::logger> get_logger_runtime(loggers_e id) {
    return slot_of(logger_list(), id);
}

spdlog::level::level_enum get_log_level(loggers_e id) {
    return get_logger_runtime(id)->level();
}

std::unordered_map<loggers_e, spdlog::level::level_enum> get_all_log_level() {
    std::unordered_map<loggers_e, spdlog::level::level_enum> levels;
    const auto& table = logger_list();
    for (std::size_t i = 0; i < table.size(); ++i) {
        levels.emplace(static_cast<loggers_e>(i), table[i]->level());
    }
    return levels;
}

void set_log_level(loggers_e id, spdlog::level::level_enum level) {
    get_logger_runtime(id)->set_level(level);
}

void set_all_log_level(spdlog::level::level_enum level) {
    for (const auto& logger : logger_list()) {
        logger->set_level(level);
    }
}

void add_logger_sinks(loggers_e id, std::shared_ptr<spdlog::sinks::sink> sink) {
    get_logger_runtime(id)->sinks().push_back(std::move(sink));
}

void set_logger_sinks(loggers_e id, std::shared_ptr<spdlog::sinks::sink> sink) {
    get_logger_runtime(id)->sinks() = {std::move(sink)};
}

void set_logger_sinks(loggers_e id,
                      std::initializer_list<std::shared_ptr<spdlog::sinks::sink>> sinks) {
    get_logger_runtime(id)->sinks() = sinks;
}

void add_all_logger_sinks(const std::shared_ptr<spdlog::sinks::sink>& sink) {
    for (const auto& logger : logger_list()) {
        logger->sinks().push_back(sink);
    }
}

void set_all_logger_sinks(const std::shared_ptr<spdlog::sinks::sink>& sink) {
    for (const auto& logger : logger_list()) {
        logger->sinks() = {sink};
    }
}

void set_all_logger_sinks(std::initializer_list<std::shared_ptr<spdlog::sinks::sink>> sinks) {
    for (const auto& logger : logger_list()) {
        logger->sinks() = sinks;
    }
}

}  // namespace utils
