#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/action.h"
#include "common/input_value.h"

// What the user bound in one application, in ascending order of the inputs; of equal ones the last
// counts, and one that is missing is unbound. In one piece of memory: a hash table for each of ten
// thousand applications takes half as long again to build and to free.
struct config_mouse_t {
    std::vector<std::pair<input_value_e, action_t>> bindings;
};

// What an action was asked for; names that mean the same application share the answer.
struct cache_key_t {
    std::string app;  // normal form
    input_value_e input;

    bool operator==(const cache_key_t& other) const {
        return input == other.input && app == other.app;
    }
};

// The input is part of it: the inputs of one application must not all fall together.
struct cache_key_hash_t {
    std::size_t operator()(const cache_key_t& key) const {
        return std::hash<std::string>{}(key.app) ^
               static_cast<std::size_t>(static_cast<std::uint64_t>(key.input) * 2);
    }
};

// The profile of one mouse model: the bindings of every configured application, by the normal form
// of its name, and under "default" those of all others. It is moved, not copied. Not synchronised:
// get_action remembers.
class mouse_t {
  public:
    // The keys are names in normal form (ASCII letters in lower case and digits); another key is
    // never found.
    explicit mouse_t(std::unordered_map<std::string, config_mouse_t> app_configs);
    mouse_t(mouse_t&&) = default;
    mouse_t& operator=(mouse_t&&) = default;

    // Builds the profile from a mouse entry of the settings file, whose input keys are decimal
    // text; "type" is not read here. The first action of a list counts, and of two names or keys
    // that mean the same the later in byte order wins. Throws for an entry that cannot be used:
    // nlohmann::json::out_of_range (no "appConfigs"), nlohmann::json::type_error (a list that is
    // none, an "action" that is neither number nor boolean), std::invalid_argument and
    // std::out_of_range (an input key that is no int, or a plain value in place of an object); the
    // text of these two names the place.
    static mouse_t from_json(const nlohmann::json& entry);

    // The action bound to `input` in the application `app_name` (a process name as the system
    // gives it): of the entry with the same name, else with the longest name that the application's
    // begins with, else with the longest that occurs in it (of equally long ones the first in byte
    // order), else of "default". What such an entry leaves unbound, "default" may bind.
    // default_action_t when nothing applies. Never fails.
    action_t get_action(input_value_e input, const std::string& app_name);

  private:
    // Without it, a daemon that runs for months would remember every program that was ever under
    // the pointer. A full cache is emptied, which costs a few resolutions.
    static constexpr std::size_t _cache_limit = 4096;

    // The ASCII letters and digits of `name`, in lower case.
    static std::string _normalize_app_name(std::string_view name);

    // The entry that applies to an application, given the normal form of its name; null for none.
    // Valid as long as the profile, wherever it is moved.
    const config_mouse_t* _app_config_of(const std::string& normal_name);
    // The same, found anew: by looking up the parts of the name, which are few, not by going
    // through all entries.
    const config_mouse_t* _resolve_app_config(const std::string& normal_name) const;
    // The entry, "default" aside, with the longest name that stands in this one; of equally long
    // ones the first in byte order.
    const config_mouse_t* _find_longest_within(const std::string& normal_name,
                                               bool at_the_start) const;
    const config_mouse_t* _find_app_config(const std::string& key) const;

    std::unordered_map<std::string, config_mouse_t> _app_configs;  // never changed once built
    std::set<std::size_t, std::greater<>> _name_lengths;           // of its names, empty ones aside
    std::unordered_map<cache_key_t, action_t, cache_key_hash_t> _cache;  // bound answers only
    // By the normal form of a name, the entry that applies, of _app_configs.
    std::unordered_map<std::string, const config_mouse_t*> _resolved;
};
