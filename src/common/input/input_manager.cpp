#include "common/input/input_manager.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/log/log.h"

namespace {

constexpr std::uint32_t smallest_input = 1;
constexpr std::uint32_t largest_input = 9;

// The slot of an input, or nothing, with a line in the log, for an input that cannot be held.
// Storing and reading share the line, word for word: who reads the log knows it by "storing".
std::optional<std::size_t> slot_of(input_value_e input) {
    const auto number = static_cast<std::uint32_t>(input);
    if (number < smallest_input || number > largest_input) {
        QLX_LOG_ERROR("Input value {} is out of range for storing action", number);
        return std::nullopt;
    }
    return number - smallest_input;
}

}  // namespace

input_manager_t::input_manager_t() {
    _init_mouse_input_action_map();
}

void input_manager_t::store_action(qlx_device_e device, input_value_e input, action_t action) {
    if (device == qlx_device_e::not_a_device) {
        QLX_LOG_ERROR("Cannot store action for not_a_device");
        return;
    }
    if (const auto slot = slot_of(input)) {
        _table[device][*slot] = std::move(action);
    }
}

action_t input_manager_t::get_action(qlx_device_e device, input_value_e input) {
    if (device == qlx_device_e::not_a_device) {
        QLX_LOG_ERROR("Cannot get action for not_a_device");
        return default_action_t{};
    }
    if (const auto slot = slot_of(input)) {
        // Makes an empty row for a model that has none: its answer is that of a row in which
        // nothing is held, and there are no more rows than mouse models.
        return _table[device][*slot];
    }
    return default_action_t{};
}

void input_manager_t::_init_mouse_input_action_map() {
    for (const auto device :
         {qlx_device_e::model_0, qlx_device_e::valtor_pro, qlx_device_e::corvane}) {
        _table[device].fill(default_action_t{});
    }
}
