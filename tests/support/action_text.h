#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <variant>

#include "common/action.h"

// An action by its name, with what it does it to.
inline std::string text_of(const action_t& action) {
    std::string text(action_name(action));
    const auto add_parameters = [&text](const auto& alternative) {
        if constexpr (requires { alternative.path; }) {
            text += " " + alternative.path;
        } else if constexpr (requires { alternative.combination; }) {
            text += " " + nlohmann::json(alternative.combination).dump();
        }
    };
    std::visit(add_parameters, action);
    return text;
}
