#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "control/applications.h"
#include "control/displays.h"
#include "control/input.h"
#include "control/permissions.h"

// A scenario: what a hand does on a desktop, and what must come of it. examples/scenarios/README.md
// describes the file for people.
namespace simulator::player {

struct application_t {
    std::string process_name;
    std::string window_title;
    CGRect frame{};
};

// The names that scenarios give the models, and the numbers that stand for them in the daemon's
// log.
inline const std::map<std::string, std::string> model_numbers = {
    {"none", "-1"}, {"model_0", "0"}, {"valtor_pro", "1"}, {"corvane", "2"}};

// What must be true within the patience of the player once a step has been done.
struct expectation_t {
    std::vector<event_outcome_e> events;  // of those that the step's hand caused; one: of all
    std::optional<std::vector<std::string>> keys;     // posted by the daemon since the step before
    std::optional<std::vector<std::string>> effects;  // on the desktop since the step before
    std::optional<std::string> active_model;
    std::vector<std::string> log;  // texts, after those that an earlier step of the run expected
};

enum class phase_e { down, up, both };

struct move_t {};
struct button_t {
    std::uint32_t button = 0;  // as Quartz counts them
    phase_e phase = phase_e::both;
};
struct wheel_t {
    std::int32_t vertical = 0;
    std::int32_t horizontal = 0;
};
struct trackpad_t {
    scroll_fields_t fields;
};
struct key_t {
    std::uint16_t code = 0;  // a virtual key code
    phase_e phase = phase_e::both;
};
struct connection_t {
    bool connected = true;
};
struct settings_t {
    std::string text;
};
struct permission_change_t {
    permission_e permission = permission_e::accessibility;
    bool granted = true;
};
enum class removal_e { deleted, renamed, moved };
struct removal_t {
    removal_e how = removal_e::deleted;
};
struct hanging_t {
    std::string application;
    bool hangs = true;
};
struct step_t;
struct burst_t {
    std::vector<step_t> acts;  // of the hand, which are no more than a device, a place and a deed
};
struct hold_t {};  // the next answer of the daemon to an event comes too late
struct look_t {};  // the hand does nothing; for a step that only expects
struct stop_t {
    int signal = 0;
};
struct exit_t {};  // the daemon ends by itself; nothing can follow

using deed_t = std::variant<move_t, button_t, wheel_t, trackpad_t, key_t, connection_t, settings_t,
                            permission_change_t, removal_t, hanging_t, burst_t, hold_t, look_t,
                            stop_t, exit_t>;

struct step_t {
    std::string where;   // for messages: "step 3"
    std::string device;  // empty where the deed needs none
    std::string over;    // the application to move to first; empty: stay
    std::chrono::milliseconds after{0};
    deed_t deed;
    expectation_t expect;
};

// What stands in the place of the front application's bundle at the start.
enum class front_application_e { bundle, plain_file, nothing };

// One life of the daemon's process, from its start to its exit code.
struct run_t {
    // None, for Input Monitoring alone: the daemon's first opening asks the user, and waits.
    std::map<permission_e, std::optional<bool>> permissions;
    front_application_e front_application = front_application_e::bundle;
    std::vector<display_t> displays;
    std::size_t main_display = 0;                      // of them
    std::map<std::string, std::size_t> failing_calls;  // the first calls of these functions fail
    std::vector<step_t> steps;
    int exit_code = 1;
    std::vector<std::string> log;  // texts that the log of this run must hold, in this order; where
                                   // one begins with a level, such as "[E] ", a line begins so
    std::vector<std::string> left_behind;    // all that the daemon leaves to the end of its process
    std::optional<std::string> rights_file;  // its whole text after the run
    std::optional<std::string> uninstall_trigger;  // "system", "user" or "none"
};

struct scenario_t {
    std::string title;
    std::optional<std::string> settings;  // the text of the settings file at the start
    std::map<std::string, device_description_t> devices;
    std::map<std::string, application_t> applications;
    bool system_support_folder = false;              // exists at the start
    std::chrono::milliseconds messaging_timeout{0};  // where the daemon sets none
    std::vector<run_t> runs;
};

// Reads and checks a whole scenario. Throws std::runtime_error with one line that names the file,
// the step and the key for anything that it does not know.
scenario_t read_scenario(const std::filesystem::path& file);

}  // namespace simulator::player
