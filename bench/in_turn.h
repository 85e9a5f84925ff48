#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <thread>
#include <vector>

// So many small things are done at once, in front of which reading the clock is little.
constexpr int items = 1000;

// What this thread has taken of the processor, in nanoseconds.
inline double processor_time() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

// Does the one and the other in turn: what makes the machine slow for a while, or scatters the
// memory that comes next, does so for both. The counters `ours` and `floor` are the medians of
// their processor_time. Before each is a pause, which does not count.
template <typename ours_t, typename floor_t>
void in_turn(benchmark::State& state, ours_t&& ours, floor_t&& floor,
             std::chrono::microseconds pause = {}) {
    std::vector<double> times_of_ours;
    std::vector<double> times_of_floor;
    for (auto _ : state) {
        std::this_thread::sleep_for(pause);
        double begin = processor_time();
        ours();
        times_of_ours.push_back(processor_time() - begin);
        std::this_thread::sleep_for(pause);
        begin = processor_time();
        floor();
        times_of_floor.push_back(processor_time() - begin);
    }
    const auto median = [](std::vector<double>& times) {
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    };
    state.counters["ours"] = median(times_of_ours);
    state.counters["floor"] = median(times_of_floor);
}
