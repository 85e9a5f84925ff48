#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Waits until the condition holds; false when it takes longer.
inline bool wait_until(const std::function<bool()>& condition,
                       std::chrono::milliseconds at_most = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + at_most;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Keeps the processor for so short a time that a sleep would be longer: a race between two threads
// goes through all of its outcomes when one waits a little longer in each round.
inline void wait_busily(std::chrono::nanoseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}
