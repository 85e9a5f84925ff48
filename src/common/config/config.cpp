#include "common/config/config.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <utility>

#include "common/config/config_file.h"
#include "common/json_number.h"
#include "common/log/log.h"

namespace {

constexpr const char* settings_file_name = "deamon-settings.json";  // as the front application does
constexpr std::chrono::milliseconds poll_period{500};
constexpr std::chrono::milliseconds settle_delay{150};

std::filesystem::path home_path() {
    const char* home = std::getenv("HOME");
    if (home == nullptr) {
        throw std::runtime_error("HOME not set");
    }
    return home;
}

}  // namespace

std::filesystem::path config_t::get_user_data_path() {
    return home_path() / "Library" / "Application Support" / "QlxControlCenter";
}

std::filesystem::path config_t::get_log_data_path() {
    return home_path() / "Library" / "Logs" / "QlxDaemon.log";
}

config_t& config_t::instance() {
    static config_t config;
    return config;
}

config_t::config_t() {
    try {
        const auto folder = get_user_data_path();
        std::filesystem::create_directories(folder);
        QLX_LOG_INFO("Using user directory: {}", folder.string());
        _settings_path = folder / settings_file_name;
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Failed to create config folder: {}", error.what());
    }
    _load(_settings_path);
    // The watcher takes the file as it finds it now for the one that is loaded, so its first look
    // comes right after the load.
    _watcher = std::make_unique<config_watcher_t>(_settings_path, poll_period, settle_delay);
    _watcher->subscribe([this](const std::filesystem::path& changed) {
        QLX_LOG_INFO("Config file change detected, reloading: {}", changed.string());
        _load(changed);
    });
}

config_t::~config_t() {
    // First of all: its thread may be in a reload, which writes the profiles.
    _watcher.reset();
}

action_t config_t::retrieve_action(qlx_device_e device, input_value_e input,
                                   const std::string& app_name) {
    if (input == input_value_e::none || device == qlx_device_e::not_a_device) {
        return default_action_t{};
    }
    const std::lock_guard lock(_mice_mutex);
    const auto mouse = _mice.find(device);
    return mouse == _mice.end() ? default_action_t{} : mouse->second.get_action(input, app_name);
}

void config_t::_load(const std::filesystem::path& path) {
    const auto text = read_config_file(path);
    if (!text) {
        QLX_LOG_ERROR("Failed to open config file: {}", path.string());
        return;
    }
    try {
        const auto document = parse_config(*text);
        QLX_LOG_INFO("config loaded {}", document.dump());
        _load_mice(document);
        QLX_LOG_INFO("mice loaded");
    } catch (const invalid_config_t& error) {
        QLX_LOG_ERROR("Config file JSON is invalid: {}", error.what());
    }
}

void config_t::_load_mice(const nlohmann::json& document) {
    const auto* const app_state =
        document.is_object() && document.contains("appState") ? &document["appState"] : nullptr;
    if (app_state == nullptr || !app_state->is_array()) {
        QLX_LOG_ERROR("appState not in config or not an array");
        return;
    }
    // Entry by entry, and nothing is removed, on purpose: a model that the file no longer mentions
    // keeps its profile until the process restarts, so that a file caught half-written does not
    // take the buttons away, and an entry that cannot be used costs neither those before it nor the
    // profiles that are there already.
    for (const auto& entry : *app_state) {
        if (!entry.is_object() || !entry.contains("type")) {
            QLX_LOG_ERROR("type not in config");
            continue;
        }
        const auto type = uint32_from_json(entry["type"]);
        const auto device = type ? static_cast<qlx_device_e>(*type) : qlx_device_e::not_a_device;
        _set_profile(device, mouse_t::from_json(entry));
    }
}

void config_t::_set_profile(qlx_device_e device, mouse_t profile) {
    {
        const std::lock_guard lock(_mice_mutex);
        const auto [mouse, is_new] = _mice.try_emplace(device, std::move(profile));
        if (!is_new) {
            std::swap(mouse->second, profile);
        }
    }
    // The profile that was replaced goes with the parameter, after the lock.
}
