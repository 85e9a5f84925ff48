#pragma once

#include <functional>
#include <string>
#include <vector>

// Functions of the C library that the daemon calls (open, read, write, fsync, flock, rename, stat,
// mkdir, fopen, fwrite, pthread_create, system), in a program that links failing_calls.cpp: they
// count and fail with the desktop's own (simulator::fail_call_number).
namespace failing_calls {

// While one lives, calls of its thread are the test's: they neither count nor fail.
class test_s_own_t {
  public:
    test_s_own_t();
    test_s_own_t(const test_s_own_t&) = delete;
    test_s_own_t& operator=(const test_s_own_t&) = delete;
    ~test_s_own_t();
};

// What happens in the next of the daemon's reads of a file on the disk, before it returns, as when
// the disk is slow; nothing for an empty one. On the thread that reads, whose calls are then the
// test's.
void during_next_read(std::function<void()> what);

// What the shell was asked to run, in order; it ran nothing. Any thread.
std::vector<std::string> shell_commands();

}  // namespace failing_calls
