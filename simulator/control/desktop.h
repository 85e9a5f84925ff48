#pragma once

#include <chrono>

namespace simulator {

// Waits until everything that the hand has done so far has been delivered, swallowed or dropped and
// the messages to the program's run loops have been called. Returns false when that takes longer.
// While it waits it runs the calling thread's own run loop when `run_loop` is asked for, which a
// test does that is the program's main thread.
enum class run_loop_e { leave, run };
bool settle(run_loop_e run_loop, std::chrono::milliseconds at_most = std::chrono::seconds(10));

// Waits until the program's main thread runs its run loop (CFRunLoopRun). False when it takes
// longer. Any other thread.
bool wait_for_run_loop(std::chrono::milliseconds at_most = std::chrono::seconds(10));

// Lets the desktop's own thread finish what the hand has done and ends it. What the hand does
// afterwards starts it again. Any thread but the desktop's own and those of callbacks.
void shut_down();

}  // namespace simulator
