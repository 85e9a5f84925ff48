// What an event costs, from the callback that the system calls to the action in the worker's hand.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "bench/in_turn.h"
#include "bench/world.h"
#include "common/worker.h"
#include "failures/counted_costs.h"

namespace {

using std::chrono::steady_clock;

// A queue, a mutex and a condition variable with a thread that takes, and nothing else.
class bare_queue_t {
  public:
    explicit bare_queue_t(std::function<void(const action_t&)> callback)
        : _callback(std::move(callback)), _taker([this] { take(); }) {}
    ~bare_queue_t() {
        {
            const std::lock_guard lock(_mutex);
            _is_over = true;
        }
        _wake_up.notify_one();
        _taker.join();
    }
    void push(action_t item) {
        {
            const std::lock_guard lock(_mutex);
            _queue.push_back(std::move(item));
        }
        _wake_up.notify_one();
    }

  private:
    void take() {
        std::unique_lock lock(_mutex);
        while (true) {
            _wake_up.wait(lock, [&] { return !_queue.empty() || _is_over; });
            if (_queue.empty()) {
                return;
            }
            const action_t item = std::move(_queue.front());
            _queue.pop_front();
            lock.unlock();
            _callback(item);
            lock.lock();
        }
    }

    const std::function<void(const action_t&)> _callback;
    std::deque<action_t> _queue;
    std::mutex _mutex;
    std::condition_variable _wake_up;
    bool _is_over = false;
    std::thread _taker;
};

void make_bare_calls() {
    const world_t& world = world_t::instance();
    for (int item = 0; item < items; ++item) {
        bare_press(world.event());
        bare_release(world.event());
    }
}

// Beside the same calls of the platform and what any program does that leaves the action to another
// thread. With a pause after each, so that this thread sleeps as it does when a person clicks, and
// has to be woken.
void click(benchmark::State& state) {
    world_t& world = world_t::instance();
    bare_queue_t queue([](const action_t&) {});
    const auto ours = [&] {
        world.tap(kCGEventOtherMouseDown);
        world.tap(kCGEventOtherMouseUp);
    };
    const auto floor = [&] {
        bare_press(world.event());
        bare_release(world.event());
        queue.push(do_nothing_t{});
    };
    in_turn(state, ours, floor, std::chrono::microseconds(50));
}

// As fast as can be, beside the calls of the platform alone.
void click_often(benchmark::State& state) {
    world_t& world = world_t::instance();
    const auto ours = [&] {
        for (int item = 0; item < items; ++item) {
            world.tap(kCGEventOtherMouseDown);
            world.tap(kCGEventOtherMouseUp);
        }
    };
    in_turn(state, ours, make_bare_calls);
}

// Beside the calls of the platform of a press and a release.
void presses(benchmark::State& state) {
    world_t& world = world_t::instance();
    const auto ours = [&] {
        for (int item = 0; item < items; ++item) {
            world.tap(kCGEventOtherMouseDown);
        }
    };
    in_turn(state, ours, make_bare_calls);
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
        const auto ours = [&] {
            for (int item = 0; item < items; ++item) {
                world.take(value);
            }
        };
        in_turn(state, ours, [&] {
            for (int item = 0; item < items; ++item) {
                bare_motion(value);
            }
        });
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

// How often this thread has waited for something: a lock, say. Not how often the scheduler has
// given its processor to another thread.
long waits() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

// Each of many clicks by itself, in quiet or while the settings of 10,000 applications are loaded
// again and again on another thread. A pause after each, as a hand makes, and shorter: without one
// this thread and the worker keep the processors busy, and the longest by the clock is what the
// scheduler gives to the thread that loads.
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
    double longest = 0;
    const auto end = steady_clock::now() + std::chrono::milliseconds(1500);
    for (auto _ : state) {
        while (steady_clock::now() < end) {
            for (const auto type : {kCGEventOtherMouseDown, kCGEventOtherMouseUp}) {
                const long waits_before = waits();
                const double worked_before = processor_time();
                const auto begin = steady_clock::now();
                world.tap(type);
                times.push_back(
                    std::chrono::duration<double, std::nano>(steady_clock::now() - begin).count());
                // Never more than by the clock: it was read around the clock and what is kept of
                // it.
                const double worked = std::min(processor_time() - worked_before, times.back());
                longest = std::max(longest, waits() == waits_before ? worked : times.back());
            }
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
    is_over = true;
    storm.join();
    std::sort(times.begin(), times.end());
    state.counters["p99.9"] = times[times.size() * 999 / 1000];
    // By the clock where it has waited, and the processor's where it has not: what other threads
    // take of the processor, here mostly those of the system, is not its own.
    state.counters["longest"] = longest;
    state.counters["longest by the clock"] = times.back();
    if (state.range(0) != 0 && (loads == 0 || !world_t::is_loaded(10'000))) {
        state.SkipWithError("there was no storm");
    }
    world_t::load(world.home.settings_file());
}

// Until the last one has been taken. This thread waits without sleeping, so that its time is that
// of both.
template <typename push_t>
auto handing_over(push_t&& push, const std::atomic<int>& taken) {
    return [push = std::forward<push_t>(push), &taken] {
        const int all = taken + items;
        for (int item = 0; item < items; ++item) {
            push();
        }
        while (taken < all) {
        }
    };
}

void hand_over(benchmark::State& state) {
    std::atomic<int> taken = 0;
    const auto take = [&](const action_t&) { ++taken; };
    worker_t<action_t> worker;
    worker.start(take);
    bare_queue_t queue(take);
    in_turn(state, handing_over([&] { worker.push_event(do_nothing_t{}); }, taken),
            handing_over([&] { queue.push(do_nothing_t{}); }, taken));
    worker.stop();
}

BENCHMARK(click)->Iterations(500);
BENCHMARK(click_often);
BENCHMARK(presses);
BENCHMARK(motion);
BENCHMARK(click_on_the_desktop)->MeasureProcessCPUTime();
BENCHMARK(each_callback)->Arg(0)->Arg(1)->Iterations(1);
BENCHMARK(hand_over);

}  // namespace
