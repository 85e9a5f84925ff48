#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "common/action.h"
#include "common/config/config_watcher.h"
#include "common/config/mouse.h"
#include "common/input_value.h"

// The user's settings, which the front application writes and the daemon only reads: one profile
// for each mouse model, loaded at first use and again whenever the file changes.
class config_t {
  public:
    // Bytes that the log file may reach before it rotates. A single longer line still makes a
    // larger file.
    static constexpr std::uint64_t logs_size = 5'242'880;

    // The user data folder, and the log file's full path, below HOME; an empty HOME gives relative
    // paths. HOME is read at each call and nothing on the disk is touched. Both throw
    // std::runtime_error ("HOME not set") and may be called without an instance. Any thread.
    static std::filesystem::path get_user_data_path();
    static std::filesystem::path get_log_data_path();

    // The process's settings. The first call makes the user data folder, loads the file and starts
    // the watcher; a missing, unreadable or invalid file is logged and leaves no profiles. Throws
    // what the file's entries raise (nlohmann::json::exception, std::invalid_argument,
    // std::out_of_range) and std::system_error ("thread constructor failed"); the next call then
    // tries again. Any thread.
    static config_t& instance();

    config_t(const config_t&) = delete;
    config_t& operator=(const config_t&) = delete;

    // The action bound to `input` of `device` in the application `app_name` (the name of the
    // process under the pointer), as a copy; default_action_t when nothing applies, and always for
    // the input none and for not_a_device. Any thread; never waits for a file to be read.
    action_t retrieve_action(qlx_device_e device, input_value_e input, const std::string& app_name);

  private:
    config_t();
    ~config_t();

    void _load(const std::filesystem::path& path);
    void _load_mice(const nlohmann::json& document);
    void _set_profile(qlx_device_e device, mouse_t profile);

    std::unique_ptr<config_watcher_t> _watcher;
    // For settings of single devices; there are none yet, and nothing fills it.
    std::unordered_map<qlx_device_e, std::function<void(const nlohmann::json&)>> _device_handlers;
    std::filesystem::path _settings_path;  // empty when the folder could not be made

    // Held to look an action up and to exchange a profile, and never longer: input events wait for
    // it.
    std::mutex _mice_mutex;
    std::unordered_map<qlx_device_e, mouse_t> _mice;  // with their caches, under _mice_mutex
};
