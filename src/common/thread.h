#pragma once

#include <system_error>
#include <thread>
#include <utility>

// Runs `function`, which takes nothing, on a new thread; whoever gets the thread joins it. Throws
// std::system_error ("thread constructor failed") when the system gives no thread. Any thread.
template <typename function_t>
std::thread start_thread(function_t function) {
    try {
        return std::thread(std::move(function));
    } catch (const std::system_error& error) {
        // The standard libraries word it differently; the text that reaches the user does not
        // change with them.
        throw std::system_error(error.code(), "thread constructor failed");
    }
}
