#include "common/config/config_watcher.h"

#include <exception>
#include <system_error>
#include <utility>

#include "common/log/log.h"
#include "common/thread.h"

using std::chrono::steady_clock;

config_watcher_t::config_watcher_t(std::filesystem::path path,
                                   std::chrono::milliseconds poll_period,
                                   std::chrono::milliseconds settle_delay)
    : _path(std::move(path)), _poll_period(poll_period), _settle_delay(settle_delay) {
    // Last, when every member that the loop uses is ready.
    _thread = start_thread([this] { _watch_loop(); });
}

config_watcher_t::~config_watcher_t() {
    stop();
}

void config_watcher_t::subscribe(callback_t callback) {
    const std::lock_guard lock(_subscribers_mutex);
    _subscribers.push_back(std::move(callback));
}

void config_watcher_t::unsubscribe_all() {
    const std::lock_guard lock(_subscribers_mutex);
    _subscribers.clear();
}

void config_watcher_t::stop() {
    if (!_running.exchange(false)) {
        return;
    }
    QLX_LOG_INFO("Stopping config watcher for file: {}", _path.string());
    if (_thread.joinable()) {
        // Taken once, so that the loop is either asleep or has not yet looked at the flag: it
        // cannot miss the wake-up and sleep on to its deadline.
        { const std::lock_guard lock(_state_mutex); }
        _wake_up.notify_all();
        _thread.join();
    }
}

std::optional<config_watcher_t::snapshot_t> config_watcher_t::_check(
    const std::filesystem::path& path) {
    try {
        snapshot_t snapshot;
        if (std::filesystem::exists(std::filesystem::status(path))) {
            snapshot.exists = true;
            snapshot.last_write_time = std::filesystem::last_write_time(path);
            std::error_code error;
            const auto size = std::filesystem::file_size(path, error);
            snapshot.size = error ? UINT64_MAX : size;
        }
        return snapshot;
    } catch (const std::exception& error) {
        QLX_LOG_WARNING("FS check failed for {}: {}", path.string(), error.what());
        return std::nullopt;
    }
}

bool config_watcher_t::_is_same(const snapshot_t& one, const snapshot_t& other) {
    if (!one.exists || !other.exists) {
        return one.exists == other.exists;
    }
    return one.last_write_time == other.last_write_time && one.size == other.size;
}

void config_watcher_t::_watch_loop() {
    QLX_LOG_INFO("Watching config file: {}", _path.string());
    snapshot_t known = _check(_path).value_or(snapshot_t{});
    auto deadline = steady_clock::now();
    std::unique_lock state(_state_mutex);
    while (_running) {
        // From the last deadline, not from now: the period stays what it is however long a tick
        // takes.
        deadline += _poll_period;
        _wake_up.wait_until(state, deadline);
        if (!_running) {
            break;
        }
        // A sleep of the machine is one late look, not thousands: the periods that passed whole are
        // skipped, and the looks stay where they would have been.
        const auto now = steady_clock::now();
        if (_poll_period > _poll_period.zero() && now > deadline) {
            deadline += (now - deadline) / _poll_period * _poll_period;
        }
        auto current = _check(_path);
        if (!current || _is_same(*current, known)) {
            continue;
        }
        // Further changes do not extend the wait: a file that never rests is still reported. And a
        // change once seen is told even when the stop comes while it settles: it is not lost.
        const auto settled = steady_clock::now() + _settle_delay;
        while (steady_clock::now() < settled && _running) {
            _wake_up.wait_until(state, settled);
            if (const auto later = _check(_path)) {
                current = later;
            }
        }
        known = *current;
        _notify();
    }
    QLX_LOG_INFO("Config watcher loop exit: {}", _path.string());
}

void config_watcher_t::_notify() {
    const std::lock_guard lock(_subscribers_mutex);
    for (const auto& subscriber : _subscribers) {
        try {
            subscriber(_path);
        } catch (const std::exception& error) {
            QLX_LOG_ERROR("Config callback threw: {}", error.what());
        }
    }
    QLX_LOG_INFO("Config change detected: {}", _path.string());
}
