// The measurements (Google Benchmark's own arguments), and two things that want a process of their
// own:
//   bench --operation NAME TIMES   does one thing as often, for a program that counts instructions
//   bench --day                    the memory after a day's use, and before

#include <benchmark/benchmark.h>
#include <spdlog/sinks/sink.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "bench/world.h"
#include "common/config/config.h"
#include "common/log/log.h"

namespace {

// What callgrind is told to count: everything that is done within.
__attribute__((noinline)) void counted_operation(const std::function<void()>& operation,
                                                 unsigned long times) {
    for (unsigned long time = 0; time < times; ++time) {
        operation();
    }
}

// Whoever logs does not come back.
struct endless_sink_t : spdlog::sinks::sink {
    void log(const spdlog::details::log_msg& /*message*/) override {
        while (true) {
            pause();
        }
    }
    void flush() override {}
    void set_pattern(const std::string& /*pattern*/) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter> /*formatter*/) override {}
};

int operate(const std::string& name, unsigned long times) {
    world_t& world = world_t::instance();
    world.home.write_settings(settings_of(1000));
    world_t::load(world.home.settings_file());
    // The worker takes one action and no more: how far it has come when the next is queued would be
    // chance.
    utils::set_all_logger_sinks(std::make_shared<endless_sink_t>());
    world.tap(kCGEventOtherMouseDown);
    world.tap(kCGEventOtherMouseUp);
    usleep(100'000);
    const auto ask = [](input_value_e input, const std::string& app) {
        benchmark::DoNotOptimize(
            config_t::instance().retrieve_action(qlx_device_e::valtor_pro, input, app));
    };
    // Whoever goes through what is remembered goes through a lot.
    ask(input_value_e::horizontal_scroll_positive, "Photo Viewer");
    for (int number = 0; number < 1000; ++number) {
        ask(input_value_e::x1_button, "Application " + std::to_string(number));
        ask(input_value_e::horizontal_scroll_positive, "Some Editor " + std::to_string(number));
    }
    const auto tap = [&](CGEventType type) { return [&world, type] { world.tap(type); }; };
    const auto bare = [&](void (*calls)(CGEventRef)) {
        return [&world, calls] { calls(world.event()); };
    };
    const std::map<std::string, std::function<void()>> operations{
        {"cached answer", [&] { ask(input_value_e::x1_button, "Application 3"); }},
        {"unbound input", [&] { ask(input_value_e::horizontal_scroll_positive, "Photo Viewer"); }},
        {"press", tap(kCGEventOtherMouseDown)},
        {"bare press", bare(bare_press)},
        {"release", tap(kCGEventOtherMouseUp)},
        {"bare release", bare(bare_release)},
        {"wheel step", tap(kCGEventScrollWheel)},
        {"bare wheel step", bare(bare_step)},
    };
    const auto run = [&](const std::function<void()>& operation) {
        operation();  // what is remembered after the first time is there
        counted_operation(operation, times);
    };
    if (name == "motion" || name == "bare motion") {
        world_t::with_value([&](IOHIDValueRef value) {
            name == "motion" ? run([&] { world.take(value); }) : run([&] { bare_motion(value); });
        });
    } else {
        run(operations.at(name));
    }
    return 0;
}

// A million events over the windows of a thousand applications, with a reload of the settings now
// and then.
int spend_a_day() {
    const auto resident = [] {
        long whole = 0, pages = 0;
        std::ifstream("/proc/self/statm") >> whole >> pages;
        return pages * sysconf(_SC_PAGESIZE);
    };
    world_t& world = world_t::instance();
    world.home.write_settings(settings_of(1000));
    world_t::load(world.home.settings_file());
    std::vector<pid_t> applications(1000);
    for (std::size_t number = 0; number < applications.size(); ++number) {
        applications[number] =
            simulator::launch_application("Application " + std::to_string(number));
    }
    const auto click = [&](std::size_t number) {
        CGEventSetIntegerValueField(world.event(), kCGEventTargetUnixProcessID,
                                    applications[number % applications.size()]);
        world.tap(kCGEventOtherMouseDown);
        world.tap(kCGEventOtherMouseUp);
    };
    click(0);
    const long before = resident();
    for (std::size_t number = 0; number < 500'000; ++number) {
        if (number % 25'000 == 0) {
            world_t::load(world.home.settings_file());
        }
        click(number);
        if (number % 500 == 0) {
            usleep(1000);  // no hand is faster than the worker
        }
    }
    std::printf("%ld %ld\n", before, resident());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    int code = 0;
    if (mode == "--operation" && argc == 4) {
        code = operate(argv[2], std::stoul(argv[3]));
    } else if (mode == "--day" && argc == 2) {
        code = spend_a_day();
    } else {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        benchmark::RunSpecifiedBenchmarks();
    }
    // The desktop and the daemon are still at work; the home folder goes, the rest with the
    // process.
    std::filesystem::remove_all(world_t::instance().home.path());
    std::fflush(stdout);
    std::_Exit(code);
}
