#include "player/course.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "player/object_reader.h"

namespace simulator::player {
namespace {

class course_t {
  public:
    course_t(const scenario_t& scenario, const run_t& run)
        : _scenario(scenario),
          _run(run),
          _bundle(run.front_application == front_application_e::bundle) {
        for (const auto& [name, device] : scenario.devices) {
            _connected.insert(name);
        }
    }

    void check() {
        for (std::size_t index = 0; index < _run.steps.size(); ++index) {
            const step_t& step = _run.steps[index];
            const step_t* const next =
                index + 1 < _run.steps.size() ? &_run.steps[index + 1] : nullptr;
            _check_device(step);
            if (const auto* const burst = std::get_if<burst_t>(&step.deed)) {
                std::for_each(burst->acts.begin(), burst->acts.end(),
                              [this](const step_t& act) { _check_device(act); });
            }
            if (const auto* const hanging = std::get_if<hanging_t>(&step.deed)) {
                _check_application(step, hanging->application);
            }
            if (const auto* const removal = std::get_if<removal_t>(&step.deed);
                removal != nullptr && !std::exchange(_bundle, false)) {
                _fail(step, "\"do\" needs the front application, which is not there");
            }
            if (std::holds_alternative<hold_t>(step.deed) &&
                (next == nullptr || !_sends_events(*next))) {
                _fail(step, "\"do\" needs a step behind it that sends an event");
            }
            if (std::holds_alternative<exit_t>(step.deed) &&
                (!step.expect.log.empty() || step.expect.active_model)) {
                _fail(step,
                      "the log is whole only when the daemon has ended: say \"log\" in the "
                      "\"expect\" of the run");
            }
            if (next != nullptr && (std::holds_alternative<stop_t>(step.deed) ||
                                    std::holds_alternative<exit_t>(step.deed))) {
                _fail(step, "\"do\" ends the run here, but steps follow");
            }
        }
    }

  private:
    [[noreturn]] static void _fail(const step_t& step, const std::string& what) {
        throw std::runtime_error(step.where + ": " + what);
    }

    static bool _sends_events(const step_t& step) {
        return std::holds_alternative<button_t>(step.deed) ||
               std::holds_alternative<wheel_t>(step.deed) ||
               std::holds_alternative<trackpad_t>(step.deed) ||
               std::holds_alternative<key_t>(step.deed) ||
               std::holds_alternative<burst_t>(step.deed);
    }

    void _check_application(const step_t& step, const std::string& name) const {
        std::set<std::string> known;
        for (const auto& [application, value] : _scenario.applications) {
            known.insert(application);
        }
        if (known.count(name) == 0) {
            _fail(step, "\"application\" is \"" + name + "\"; known are: " + joined(known, "none"));
        }
    }

    void _check_device(const step_t& step) {
        if (step.device.empty()) {
            return;
        }
        const device_description_t& device = _scenario.devices.at(step.device);
        if (const auto* const connection = std::get_if<connection_t>(&step.deed)) {
            const bool is_connected = _connected.count(step.device) > 0;
            if (connection->connected == is_connected) {
                _fail(step, "\"device\" " + step.device +
                                (is_connected ? " is connected already" : " is not connected"));
            }
            if (!step.over.empty()) {
                _fail(step, "\"over\" is not a known key here");
            }
            if (connection->connected) {
                _connected.insert(step.device);
            } else {
                _connected.erase(step.device);
            }
            return;
        }
        const bool keys = std::holds_alternative<key_t>(step.deed);
        if (_connected.count(step.device) == 0) {
            _fail(step, "\"device\" " + step.device + " is not connected");
        }
        if (keys && device.keyboard.empty()) {
            _fail(step, "\"device\" " + step.device + " has no keyboard");
        }
        if ((!keys || !step.over.empty()) && device.pointer.empty()) {
            _fail(step, "\"device\" " + step.device + " has no pointer");
        }
    }

    const scenario_t& _scenario;
    const run_t& _run;
    std::set<std::string> _connected;
    bool _bundle;
};

}  // namespace

void check_course(const scenario_t& scenario, const run_t& run) {
    course_t(scenario, run).check();
}

}  // namespace simulator::player
