#include "common/config/mouse.h"

#include <utility>

namespace {

constexpr const char* default_app = "default";

const action_t* find_binding(const config_mouse_t* config, input_value_e input) {
    if (config == nullptr) {
        return nullptr;
    }
    const auto binding = config->bindings.find(input);
    return binding == config->bindings.end() ? nullptr : &binding->second;
}

config_mouse_t config_from_json(const nlohmann::json& app_entry) {
    config_mouse_t config;
    for (const auto& [key, list] : app_entry.items()) {
        // Before the list is looked at: a key that is no number is an error even when it binds
        // nothing.
        const auto input = static_cast<input_value_e>(static_cast<std::uint32_t>(std::stoi(key)));
        if (list.empty()) {
            continue;
        }
        const nlohmann::json& first = list[std::size_t{0}];
        config.bindings.insert_or_assign(input, make_action(first));
    }
    return config;
}

}  // namespace

mouse_t::mouse_t(std::unordered_map<std::string, config_mouse_t> app_configs)
    : _app_configs(std::move(app_configs)) {}

mouse_t mouse_t::from_json(const nlohmann::json& entry) {
    std::unordered_map<std::string, config_mouse_t> app_configs;
    for (const auto& [name, app_entry] : entry.at("appConfigs").items()) {
        app_configs.insert_or_assign(_normalize_app_name(name), config_from_json(app_entry));
    }
    return mouse_t(std::move(app_configs));
}

action_t mouse_t::get_action(input_value_e input, const std::string& app_name) {
    cache_key_t key{_normalize_app_name(app_name), input};
    if (const auto cached = _cache.find(key); cached != _cache.end()) {
        return cached->second;
    }
    const action_t* binding = find_binding(_resolve_app_config(key.app), input);
    if (binding == nullptr) {
        binding = find_binding(_find_app_config(default_app), input);
    }
    if (binding == nullptr) {
        // Not cached: such answers would fill the cache with every program that the pointer
        // crosses.
        return default_action_t{};
    }
    if (_cache.size() >= _cache_limit) {
        _cache.clear();
    }
    _cache.emplace(std::move(key), *binding);
    return *binding;
}

std::string mouse_t::_normalize_app_name(std::string_view name) {
    std::string normal;
    normal.reserve(name.size());
    for (const char c : name) {
        if (c >= 'A' && c <= 'Z') {
            normal.push_back(static_cast<char>(c - 'A' + 'a'));
        } else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
            normal.push_back(c);
        }
    }
    return normal;
}

const config_mouse_t* mouse_t::_find_app_config(const std::string& key) const {
    const auto entry = _app_configs.find(key);
    return entry == _app_configs.end() ? nullptr : &entry->second;
}

const config_mouse_t* mouse_t::_resolve_app_config(const std::string& normal_name) const {
    if (const auto* exact = _find_app_config(normal_name)) {
        return exact;
    }
    const auto longest = [this](const auto& matches) {
        const config_mouse_t* kept = nullptr;
        std::string_view kept_name;  // so an empty name never wins
        for (const auto& [name, config] : _app_configs) {
            // "default" is no application: a program whose name contains the word must not match
            // it. Among equally long names the order of the map, which is chance, must not decide.
            const bool is_better = name.size() > kept_name.size() ||
                                   (name.size() == kept_name.size() && kept_name.compare(name) > 0);
            if (name != default_app && is_better && matches(name)) {
                kept = &config;
                kept_name = name;
            }
        }
        return kept;
    };
    const auto begins = [&](const std::string& name) { return normal_name.starts_with(name); };
    const auto occurs = [&](const std::string& name) {
        return normal_name.find(name) != std::string::npos;
    };
    if (const auto* prefix = longest(begins)) {
        return prefix;
    }
    if (const auto* substring = longest(occurs)) {
        return substring;
    }
    return _find_app_config(default_app);
}
