#pragma once

#include <array>
#include <unordered_map>

#include "common/action.h"
#include "common/input_value.h"

// The actions held from the press of an input to its release: one row for each mouse model, one
// slot for each input. Not synchronised: only the thread that processes the events uses it.
class input_manager_t {
  public:
    // Every slot of the three known models holds default_action_t.
    input_manager_t();
    virtual ~input_manager_t() = default;  // hook_manager_t derives from it
    input_manager_t(const input_manager_t&) = delete;
    input_manager_t& operator=(const input_manager_t&) = delete;

    // Holds `action`. For not_a_device and for inputs other than 1 to 9 it logs an error and holds
    // nothing.
    void store_action(qlx_device_e device, input_value_e input, action_t action);

    // A copy of the held action, which stays held; default_action_t when none is. For not_a_device
    // and for inputs other than 1 to 9 it also logs an error. A model that is not known gets an
    // empty row.
    action_t get_action(qlx_device_e device, input_value_e input);

  private:
    // Slot i belongs to the input with the number i + 1. The last slot stays out of reach: the
    // input that would have it, corvane_extra_key, is refused on purpose.
    using slots_t = std::array<action_t, 10>;

    void _init_mouse_input_action_map();

    std::unordered_map<qlx_device_e, slots_t> _table;
};
