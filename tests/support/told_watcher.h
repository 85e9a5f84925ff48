#pragma once

#include <exception>
#include <utility>

#include "common/config/config_watcher.h"
#include "common/log/log.h"

// Stands in for the watcher of the settings file, in the program of the one source that includes
// this: there is no thread, and the settings are read when told_watcher::tell() says so. One
// thread.
namespace told_watcher {

inline config_watcher_t::callback_t callback;  // of the store that was built last

// Lets that store load the file before it returns. As with the watcher, a standard exception is
// logged and any other ends the program.
inline void tell(const std::filesystem::path& changed) {
    try {
        callback(changed);
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Config callback threw: {}", error.what());
    }
}

}  // namespace told_watcher

config_watcher_t::config_watcher_t(std::filesystem::path path,
                                   std::chrono::milliseconds poll_period,
                                   std::chrono::milliseconds settle_delay)
    : _path(std::move(path)), _poll_period(poll_period), _settle_delay(settle_delay) {}

config_watcher_t::~config_watcher_t() = default;

void config_watcher_t::subscribe(callback_t callback) {
    told_watcher::callback = std::move(callback);
}
