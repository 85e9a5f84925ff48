#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// Where the front application is installed, and where it looks for the trigger that asks it to
// remove what it left. Both are the front application's choice.
inline constexpr const char* front_application_bundle = "/Applications/QlxControlCenter.app";
inline constexpr const char* system_support_folder =
    "/Library/Application Support/QlxControlCenter";

// Waits, on a thread of its own, for the front application's bundle to be deleted, renamed or moved
// away; then writes the uninstall trigger and calls back.
class uninstall_watcher_t {
  public:
    // Starts the thread and returns at once. `on_quit` runs at most once, on that thread: when the
    // bundle has gone, and also when the wait ends in another way, as by the destructor. It does
    // not run when the watch could not be set up, nor when there was no bundle to watch (the
    // trigger is written then too). It must not throw and must not destroy the watcher. `home` is
    // the user's home folder; without it the one of the password database is taken, else HOME.
    // Throws std::system_error ("thread constructor failed") when there is no thread to be had.
    explicit uninstall_watcher_t(std::function<void()> on_quit,
                                 std::string bundle = front_application_bundle,
                                 std::string system_folder = system_support_folder,
                                 std::optional<std::string> home = std::nullopt);
    uninstall_watcher_t(const uninstall_watcher_t&) = delete;
    uninstall_watcher_t& operator=(const uninstall_watcher_t&) = delete;

    // Ends the wait at once and joins the thread.
    ~uninstall_watcher_t();

  private:
    // The thread's body.
    void watcher_loop();

    bool _arm();
    void _wait();
    int _queue();
    void _close_descriptors();
    void _consume_on_quit();

    std::thread _thread;
    std::function<void()> _on_quit;
    std::atomic<bool> _stop_requested{false};
    std::mutex _mutex;  // guards the two descriptors, and is held while they are being set up
    int _bundle_descriptor = -1;
    int _queue_descriptor = -1;
    const std::string _bundle;
    const std::string _system_folder;
    const std::optional<std::string> _home;
};

// Writes the uninstall trigger into the system-wide support folder when that is there and can be
// written to, otherwise into the user's, which is made when only its last level is missing. `home`
// as above. Never waits for another process. Failures are logged. Any thread.
void request_uninstall(const std::string& system_folder = system_support_folder,
                       const std::optional<std::string>& home = std::nullopt);

// Creates or truncates the file and writes the trigger's content. False, and logged, when it cannot
// be opened or is no regular file.
bool touch_file(const std::string& path);
