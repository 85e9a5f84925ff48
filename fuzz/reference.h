#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "common/action.h"

// Ends the program, so that the fuzzer keeps the input, unless it `holds`.
inline void require(bool holds, const std::string& what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what.c_str());
        std::abort();
    }
}

inline void require_same(const std::string& one, const std::string& other,
                         const std::string& what) {
    require(one == other, what + "\n  " + one + "\n  " + other);
}

// What the settings mean, found the long way: through all entries, with no table and no cache.
namespace reference {

using json_t = nlohmann::json;

inline std::string normal_form(const std::string& name) {
    std::string normal;
    for (const unsigned char c : name) {
        if (c < 0x80 && std::isalnum(c) != 0) {
            normal += static_cast<char>(std::tolower(c));
        }
    }
    return normal;
}

// The action of an input in an application, of a mouse entry that can be used.
inline action_t action(const json_t& entry, std::uint32_t input, const std::string& name) {
    const std::string app = normal_form(name);
    const auto rank_of = [&app](const std::string& key) -> std::pair<int, std::size_t> {
        if (key == app || key == "default") {
            return {key == app ? 3 : 0, 0};
        }
        const auto place = key.empty() ? std::string::npos : app.find(key);
        return {place == 0 ? 2 : place == std::string::npos ? -1 : 1, key.size()};
    };
    const json_t unbound = json_t::object();
    std::map<std::string, const json_t*> apps{{"default", &unbound}};
    for (const auto& [key, bindings] : entry.at("appConfigs").items()) {
        apps[normal_form(key)] = &bindings;
    }
    const auto best = std::max_element(apps.begin(), apps.end(), [&](auto& one, auto& other) {
        return rank_of(one.first) < rank_of(other.first);
    });
    for (const json_t* const bindings : {best->second, apps.at("default")}) {
        std::optional<action_t> found;
        for (const auto& [key, list] : bindings->items()) {
            if (static_cast<std::uint32_t>(std::stol(key)) == input && !list.empty()) {
                found = make_action(list.front());
            }
        }
        if (found) {
            return *found;
        }
    }
    return default_action_t{};
}

}  // namespace reference
