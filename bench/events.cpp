// What an event costs, from the callback that the system calls to the action in the worker's hand.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "bench/world.h"
#include "common/config/config.h"
#include "common/worker.h"
#include "failures/counted_costs.h"

namespace {

using std::chrono::steady_clock;

void click(benchmark::State& state) {
    world_t& world = world_t::instance();
    for (auto _ : state) {
        world.tap(kCGEventOtherMouseDown);
        world.tap(kCGEventOtherMouseUp);
    }
}

void press(benchmark::State& state) {
    world_t& world = world_t::instance();
    for (auto _ : state) {
        world.tap(kCGEventOtherMouseDown);
    }
}

void bare_click(benchmark::State& state) {
    const world_t& world = world_t::instance();
    for (auto _ : state) {
        bare_press(world.event());
        bare_release(world.event());
    }
}

// With what one of them asks for, counted.
void motion(benchmark::State& state) {
    world_t& world = world_t::instance();
    world_t::with_value([&](IOHIDValueRef value) {
        world.take(value);
        counted_costs::begin(counted_costs::threads_e::this_one);
        world.take(value);
        auto costs = counted_costs::end();
        state.counters["allocations"] = static_cast<double>(std::exchange(costs["allocation"], 0));
        state.counters["locks"] = static_cast<double>(std::exchange(costs["lock"], 0));
        double calls = 0;
        for (const auto& [what, times] : costs) {
            calls += static_cast<double>(times);
        }
        state.counters["calls"] = calls;
        for (auto _ : state) {
            world.take(value);
        }
    });
}

void bare_motion_value(benchmark::State& state) {
    world_t::with_value([&](IOHIDValueRef value) {
        for (auto _ : state) {
            bare_motion(value);
        }
    });
}

// A click of the hand, through the whole simulated desktop, with the time of all of its threads.
void click_on_the_desktop(benchmark::State& state) {
    const world_t& world = world_t::instance();
    for (auto _ : state) {
        simulator::press(world.mouse, 3);
        simulator::release(world.mouse, 3);
        world_t::let_it_happen();
        simulator::forget_events();
    }
}

// Each of many clicks by itself, in quiet or while the settings of 10,000 applications are loaded
// again and again on another thread.
void each_callback(benchmark::State& state) {
    world_t& world = world_t::instance();
    const auto file = world.home.path() / "many";
    std::ofstream(file) << settings_of(10'000);
    std::atomic<bool> is_over = state.range(0) == 0;
    std::atomic<std::size_t> loads = 0;
    std::thread storm([&] {
        while (!is_over) {
            world_t::load(file);
            ++loads;
        }
    });
    std::vector<double> times;
    const auto end = steady_clock::now() + std::chrono::milliseconds(500);
    for (auto _ : state) {
        while (steady_clock::now() < end) {
            for (const auto type : {kCGEventOtherMouseDown, kCGEventOtherMouseUp}) {
                const auto begin = steady_clock::now();
                world.tap(type);
                times.push_back(
                    std::chrono::duration<double, std::nano>(steady_clock::now() - begin).count());
            }
        }
    }
    is_over = true;
    storm.join();
    std::sort(times.begin(), times.end());
    state.counters["p99.9"] = times[times.size() * 999 / 1000];
    state.counters["longest"] = times.back();
    state.counters["loads"] = static_cast<double>(loads);
    world_t::load(world.home.settings_file());
}

// So many items at once, until the last one has been taken.
constexpr int items = 1000;

void hand_over(benchmark::State& state) {
    std::atomic<int> taken = 0;
    worker_t<action_t> worker;
    worker.start([&](const action_t&) { ++taken; });
    for (auto _ : state) {
        taken = 0;
        for (int item = 0; item < items; ++item) {
            worker.push_event(do_nothing_t{});
        }
        while (taken < items) {
        }
    }
    worker.stop();
}

// A queue, a mutex and a condition variable, and nothing else.
void bare_queue(benchmark::State& state) {
    std::atomic<int> taken = 0;
    std::deque<action_t> queue;
    std::mutex mutex;
    std::condition_variable wake_up;
    bool is_over = false;
    std::thread taker([&] {
        std::unique_lock lock(mutex);
        while (true) {
            wake_up.wait(lock, [&] { return !queue.empty() || is_over; });
            if (queue.empty()) {
                return;
            }
            const action_t item = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            ++taken;
            lock.lock();
        }
    });
    for (auto _ : state) {
        taken = 0;
        for (int item = 0; item < items; ++item) {
            {
                const std::lock_guard lock(mutex);
                queue.emplace_back(do_nothing_t{});
            }
            wake_up.notify_one();
        }
        while (taken < items) {
        }
    }
    {
        const std::lock_guard lock(mutex);
        is_over = true;
    }
    wake_up.notify_one();
    taker.join();
}

BENCHMARK(click);
BENCHMARK(press);
BENCHMARK(bare_click);
BENCHMARK(motion);
BENCHMARK(bare_motion_value);
BENCHMARK(click_on_the_desktop)->MeasureProcessCPUTime();
BENCHMARK(each_callback)->Arg(0)->Arg(1)->Iterations(1);
BENCHMARK(hand_over);
BENCHMARK(bare_queue);

}  // namespace
