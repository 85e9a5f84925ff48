// Loads the settings file below HOME as the daemon does, and prints what each input does in each
// application that it names: one JSON array on a line of its own for a bound input, [model,
// application, input, name of the action, its parameters, whether "Default" binds it]. A file that
// the daemon complains of ends it with its complaint, and status 1.
#include <spdlog/sinks/ostream_sink.h>

#include <array>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <variant>

#include "common/config/config.h"
#include "common/config/config_file.h"
#include "common/json_number.h"
#include "common/log/log.h"

namespace {

constexpr std::array inputs{input_value_e::middle_button, input_value_e::x1_button,
                            input_value_e::x2_button, input_value_e::horizontal_scroll_negative,
                            input_value_e::horizontal_scroll_positive};

struct parameters_t {
    nlohmann::json operator()(const open_file_t& action) const { return action.path; }
    nlohmann::json operator()(const open_standard_path_program_t& action) const {
        return action.path;
    }
    nlohmann::json operator()(const shortcut_t& action) const { return action.combination; }
    template <typename other_t>
    nlohmann::json operator()(const other_t&) const {
        return nullptr;
    }
};

// The daemon's settings, once it has loaded them without a complaint.
config_t& load() {
    static std::ostringstream complaints;  // the store outlives this call, and its watcher logs
    const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(complaints);
    sink->set_pattern("%v");
    sink->set_level(spdlog::level::err);
    utils::set_all_logger_sinks(sink);
    config_t& config = config_t::instance();
    if (const std::string text = complaints.str(); !text.empty()) {
        throw std::runtime_error(text.substr(0, text.find('\n')));
    }
    return config;
}

void describe(config_t& config, const nlohmann::json& mouse) {
    const auto number = uint32_from_json(mouse.at("type"));
    const auto device = number ? static_cast<qlx_device_e>(*number) : qlx_device_e::not_a_device;
    for (const auto& [name, bindings] : mouse.at("appConfigs").items()) {
        for (const input_value_e input : inputs) {
            const action_t action = config.retrieve_action(device, input, name);
            if (std::holds_alternative<default_action_t>(action)) {
                continue;
            }
            const auto key = std::to_string(static_cast<std::uint32_t>(input));
            const auto own = bindings.find(key);
            const bool is_own = own != bindings.end() && !own->empty();
            const nlohmann::json parameters = std::visit(parameters_t{}, action);
            const nlohmann::json told{mouse["type"],       name,       key,
                                      action_name(action), parameters, !is_own};
            std::cout << told << "\n";
        }
    }
}

}  // namespace

int main() {
    try {
        config_t& config = load();
        const auto text = read_config_file(config_t::get_user_data_path() / "deamon-settings.json");
        const nlohmann::json document = parse_config(text.value_or(""));
        for (const nlohmann::json& mouse : document.at("appState")) {
            describe(config, mouse);
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
