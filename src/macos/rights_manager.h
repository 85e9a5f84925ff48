#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

// Full path of the rights file, through which the front application learns what the user granted.
// Computed once, when the process starts; empty when HOME is not set then.
extern const std::string file_path_rights;

// Whether this process is trusted for Accessibility. Never shows the system's prompt. Any thread.
[[nodiscard]] bool check_accessibility();

// Whether this process can open the keyboards and mice that are attached; true when there are none.
// Opens a HID manager of its own and closes it again, which takes some milliseconds; where the user
// has not decided on Input Monitoring yet, the system asks, and the call waits for the answer.
// False also when another program has seized a device, or when there is no memory. Any thread.
[[nodiscard]] bool check_input_monitoring();

// Replaces the rights file as a whole: whoever reads it, at whatever moment this process is killed
// and however many write at once, finds the old or the new file. Writes `path` + ".tmp" first; what
// stands there and is no regular file is a failure. Waits at most five seconds while others hold
// the folder's lock, and half a second more for one on the temporary file. Failures are logged and
// leave the old file. Never throws. Any thread.
void write_rights_to_file(bool accessibility, bool input_monitoring,
                          const std::string& path = file_path_rights);

// The content of the rights file, whatever JSON value it is; {"accessibility": false,
// "input_monitoring": false} when it cannot be opened or is no regular file. A file that is not
// JSON is logged and gives what could be read before the fault; one that is larger than 1 MiB,
// nested deeper than 64 levels or cannot be read is logged and gives the object above. Waits for a
// writer that locks the file, at most half a second. Any thread.
[[nodiscard]] nlohmann::json read_rights_from_file(const std::string& path = file_path_rights);

// Calls back once when Accessibility goes from granted to not granted. Looks every period from a
// thread of its own, until the first loss; a permission that comes back is not watched again.
class permission_guard_t {
  public:
    // Takes the present state as the first one and starts the thread. `on_lost` may be empty, must
    // not throw and must not destroy, move or assign the guard; it runs on the guard's thread, or
    // on the one that calls poke_now(). Throws std::system_error ("thread constructor failed") when
    // there is no thread to be had.
    permission_guard_t(std::chrono::seconds period, std::function<void()> on_lost);

    // Both end the threads of the guards involved before anything changes hands, and so wait up to
    // one period for each. The guard that is moved from watches no more. One that is made so
    // watches if the other had a thread, even one that a loss had ended. One that had a thread
    // itself and is assigned to does not watch again, whatever it takes over: its new thread ends
    // at once, and only poke_now() works on it. The process ends when there is no thread to be had.
    permission_guard_t(permission_guard_t&& other) noexcept;
    permission_guard_t& operator=(permission_guard_t&& other) noexcept;
    permission_guard_t(const permission_guard_t&) = delete;
    permission_guard_t& operator=(const permission_guard_t&) = delete;

    // Waits for the thread, up to one period: it looks at nothing while it sleeps. Waits also for
    // the end of an `on_lost` that is under way.
    ~permission_guard_t();

    // Looks at once, on the calling thread, and calls back from there.
    void poke_now();

    // The state that was seen last. Any thread.
    [[nodiscard]] bool last_state() const { return _last_state; }

  private:
    static bool _check_ax_permission();

    void _take_over(permission_guard_t& other) noexcept;
    void _start();
    void _join() noexcept;
    void _stop() noexcept;
    void _monitor_loop();
    void _invoke_on_main();

    std::chrono::seconds _period{};
    std::function<void()> _on_lost;
    std::atomic<bool> _last_state{false};
    std::thread _thread;
    std::atomic<bool> _running{false};
};
