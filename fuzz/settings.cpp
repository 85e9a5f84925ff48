// Settings texts one after the other, with a '|' between, in a store of their own: each usable
// entry takes the place of its model's, what cannot be used changes nothing, and every answer is
// the reference's, the first time and again. The same text means the same when it is loaded again.

#include <cmath>
#include <exception>
#include <fstream>
#include <sstream>
#include <vector>

#include "common/config/config.h"
#include "common/config/config_file.h"
#include "fuzz/reference.h"
#include "support/action_text.h"
#include "support/temporary_home.h"
#include "support/told_watcher.h"

namespace {

using reference::json_t;

constexpr std::uint32_t no_model = 0xFFFFFFFF;

bool is_usable(const json_t& entry) {
    try {
        mouse_t::from_json(entry);
        return entry.at("type").is_number();
    } catch (const std::exception&) {
        return false;
    }
}

// Truncated, and wrapped once; not_a_device for what is out of range.
std::uint32_t model_of(const json_t& entry) {
    const double number = std::trunc(entry.at("type").get<double>());
    return number >= -0x1p31 && number < 0x1p32
               ? static_cast<std::uint32_t>(static_cast<std::int64_t>(number))
               : no_model;
}

// The entries in force, by their models.
using entries_t = std::map<std::uint32_t, json_t>;

void merge(const json_t& document, entries_t& entries) {
    const json_t state = document.is_object() ? document.value("appState", json_t()) : json_t();
    for (const json_t& entry : state.is_array() ? state : json_t::array()) {
        if (entry.is_object() && entry.contains("type")) {
            if (!is_usable(entry)) {
                return;
            }
            entries[model_of(entry)] = entry;
        }
    }
}

// Asks for its inputs and some others, in its applications and in others that have to do with them.
void ask(config_t& store, std::uint32_t model, const json_t& entry) {
    std::vector<std::string> names{"", "Some App", "Default Browser"};
    std::vector<std::uint32_t> inputs{0, 3, 4, 10};
    for (const auto& [name, bindings] : entry.at("appConfigs").items()) {
        names.insert(names.end(), {name, name + " Helper", "My " + name});
        for (const auto& [key, list] : bindings.items()) {
            inputs.push_back(static_cast<std::uint32_t>(std::stol(key)));
        }
    }
    // A hundred questions, far apart where there are more.
    const std::size_t count = names.size() * inputs.size();
    for (std::size_t i = 0; i < std::min<std::size_t>(100, count); ++i) {
        const auto& name = names[i * 7919 % count / inputs.size()];
        const auto input = inputs[i * 7919 % count % inputs.size()];
        const auto answer = store.retrieve_action(static_cast<qlx_device_e>(model),
                                                  static_cast<input_value_e>(input), name);
        const bool is_none = input == 0 || model == no_model;
        require_same(text_of(answer),
                     is_none ? "default_action" : text_of(reference::action(entry, input, name)),
                     "model " + std::to_string(model) + ", input " + std::to_string(input));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_home_t home;
    std::istringstream texts(std::string(reinterpret_cast<const char*>(data), size));
    config_t store;
    entries_t entries{{0, {{"appConfigs", json_t::object()}}}};
    for (std::string text; std::getline(texts, text, '|');) {
        std::ofstream(home.settings_file(), std::ios::binary) << text;
        for (int time = 0; time < 2; ++time) {
            told_watcher::tell(home.settings_file());
            try {
                merge(parse_config(text), entries);
            } catch (const invalid_config_t&) {
            }
            for (const auto& [model, entry] : entries) {
                ask(store, model, entry);
                ask(store, model, entry);
            }
        }
        std::filesystem::remove(home.settings_file());
    }
    return 0;
}
