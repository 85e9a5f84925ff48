#include "common/config/mouse.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace {

constexpr const char* default_app = "default";

const action_t* find_binding(const config_mouse_t* config, input_value_e input) {
    if (config == nullptr) {
        return nullptr;
    }
    const auto& bindings = config->bindings;
    const auto after = std::upper_bound(
        bindings.begin(), bindings.end(), input,
        [](input_value_e wanted, const auto& binding) { return wanted < binding.first; });
    return after != bindings.begin() && std::prev(after)->first == input ? &std::prev(after)->second
                                                                         : nullptr;
}

// A text of the file as it stands there: what is in it must not break the line of the log.
std::string quoted(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool has_items(const nlohmann::json& value) {
    return value.is_structured() || value.is_null();
}

input_value_e input_from_key(const std::string& key, const std::string& app) {
    const auto text = [&] { return "input key " + quoted(key) + " of " + quoted(app); };
    try {
        return static_cast<input_value_e>(static_cast<std::uint32_t>(std::stoi(key)));
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(text() + " is no number");
    } catch (const std::out_of_range&) {
        throw std::out_of_range(text() + " is out of range");
    }
}

config_mouse_t config_from_json(const nlohmann::json& app_entry, const std::string& app) {
    if (!has_items(app_entry)) {
        throw std::invalid_argument("the entry of " + quoted(app) + " is no object");
    }
    config_mouse_t config;
    auto& bindings = config.bindings;
    bindings.reserve(std::min<std::size_t>(app_entry.size(), 16));  // more than a mouse has
    for (const auto& [key, list] : app_entry.items()) {
        // Before the list is looked at: a key that is no number is an error even when it binds
        // nothing.
        const input_value_e input = input_from_key(key, app);
        if (list.empty()) {
            continue;
        }
        const nlohmann::json& first = list[std::size_t{0}];
        bindings.emplace_back(input, make_action(first));
    }
    const auto precedes = [](const auto& one, const auto& other) {
        return one.first < other.first;
    };
    if (!std::is_sorted(bindings.begin(), bindings.end(), precedes)) {
        // "10" stands before "2" in a file. Stable, since of "03" and "3" the later counts.
        std::stable_sort(bindings.begin(), bindings.end(), precedes);
    }
    return config;
}

}  // namespace

mouse_t::mouse_t(std::unordered_map<std::string, config_mouse_t> app_configs)
    : _app_configs(std::move(app_configs)) {
    for (const auto& [name, config] : _app_configs) {
        if (!name.empty()) {  // which only its like fits
            _name_lengths.insert(name.size());
        }
    }
}

mouse_t mouse_t::from_json(const nlohmann::json& entry) {
    std::unordered_map<std::string, config_mouse_t> app_configs;
    const nlohmann::json& apps = entry.at("appConfigs");
    if (!has_items(apps)) {
        throw std::invalid_argument("\"appConfigs\" is no object");
    }
    app_configs.reserve(apps.size());
    for (const auto& [name, app_entry] : apps.items()) {
        app_configs.insert_or_assign(_normalize_app_name(name), config_from_json(app_entry, name));
    }
    return mouse_t(std::move(app_configs));
}

action_t mouse_t::get_action(input_value_e input, const std::string& app_name) {
    cache_key_t key{_normalize_app_name(app_name), input};
    if (const auto cached = _cache.find(key); cached != _cache.end()) {
        return cached->second;
    }
    const action_t* binding = find_binding(_app_config_of(key.app), input);
    if (binding == nullptr) {
        binding = find_binding(_find_app_config(default_app), input);
    }
    if (binding == nullptr) {
        // Not cached: the answers of every program that the pointer crosses would push out those
        // that are of use.
        return default_action_t{};
    }
    if (_cache.size() >= _cache_limit) {
        _cache.clear();
    }
    _cache.emplace(std::move(key), *binding);
    return *binding;
}

std::string mouse_t::_normalize_app_name(std::string_view name) {
    std::string normal(name.size(), '\0');
    char* end = normal.data();
    for (const char c : name) {
        // Capital letters are small ones without this bit; digits have it. Each byte is written,
        // and the next one over it where it does not belong.
        const auto lower = static_cast<char>(c | 0x20);
        *end = lower;
        end += (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ? 1 : 0;
    }
    normal.resize(static_cast<std::size_t>(end - normal.data()));
    return normal;
}

const config_mouse_t* mouse_t::_find_app_config(const std::string& key) const {
    const auto entry = _app_configs.find(key);
    return entry == _app_configs.end() ? nullptr : &entry->second;
}

// For a long name and many lengths in the settings the work grows with the cube of the name's
// length; a process name, of 31 bytes at the most, keeps it small.
const config_mouse_t* mouse_t::_find_longest_within(const std::string& normal_name,
                                                    bool at_the_start) const {
    std::string part;
    for (const std::size_t length : _name_lengths) {
        if (length > normal_name.size()) {
            continue;
        }
        const std::size_t last_place = at_the_start ? 0 : normal_name.size() - length;
        const config_mouse_t* found = nullptr;
        std::string found_name;
        for (std::size_t place = 0; place <= last_place; ++place) {
            part.assign(normal_name, place, length);
            const auto* const entry = _find_app_config(part);
            // "default" is no application: a program whose name contains the word must not match
            // it.
            if (entry != nullptr && part != default_app && (!found || part < found_name)) {
                found = entry;
                found_name = part;
            }
        }
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

const config_mouse_t* mouse_t::_resolve_app_config(const std::string& normal_name) const {
    if (const auto* exact = _find_app_config(normal_name)) {
        return exact;
    }
    if (const auto* prefix = _find_longest_within(normal_name, true)) {
        return prefix;
    }
    if (const auto* substring = _find_longest_within(normal_name, false)) {
        return substring;
    }
    return _find_app_config(default_app);
}

const config_mouse_t* mouse_t::_app_config_of(const std::string& normal_name) {
    if (const auto known = _resolved.find(normal_name); known != _resolved.end()) {
        return known->second;
    }
    if (_resolved.size() >= _cache_limit) {
        _resolved.clear();
    }
    return _resolved.emplace(normal_name, _resolve_app_config(normal_name)).first->second;
}
