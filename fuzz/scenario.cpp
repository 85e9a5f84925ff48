// A scenario is refused with one line that names the file, or can be played: its hand uses only
// what is there.

#include <fstream>
#include <set>
#include <stdexcept>

#include "fuzz/reference.h"
#include "player/scenario.h"
#include "support/temporary_home.h"

namespace {

using namespace simulator::player;

void use(const step_t& step, const scenario_t& scenario, std::set<std::string>& away) {
    if (const auto* const burst = std::get_if<burst_t>(&step.deed)) {
        for (const step_t& act : burst->acts) {
            use(act, scenario, away);
        }
    }
    require(step.over.empty() || scenario.applications.count(step.over) > 0, "a place is there");
    if (step.device.empty()) {
        return;
    }
    const auto& device = scenario.devices.at(step.device);
    if (const auto* const connection = std::get_if<connection_t>(&step.deed)) {
        require(
            connection->connected ? away.erase(step.device) > 0 : away.insert(step.device).second,
            "a device is connected and disconnected in turn");
        return;
    }
    const bool types = std::holds_alternative<simulator::player::key_t>(step.deed);
    require(away.count(step.device) == 0, "a device that is used is connected");
    require(!types || !device.keyboard.empty(), "a device that types has a keyboard");
    require((types && step.over.empty()) || !device.pointer.empty(), "what moves has a pointer");
}

void play(const scenario_t& scenario) {
    for (const run_t& run : scenario.runs) {
        std::set<std::string> away;
        for (const step_t& step : run.steps) {
            use(step, scenario, away);
            const bool ends = std::holds_alternative<stop_t>(step.deed) ||
                              std::holds_alternative<exit_t>(step.deed);
            require(!ends || &step == &run.steps.back(), "nothing comes after the end");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_home_t home;
    static const std::string file = (home.path() / "s.json").string();
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    try {
        play(read_scenario(file));
    } catch (const std::runtime_error& error) {
        const std::string line = error.what();
        require(line.rfind(file, 0) == 0, "names the file: " + line);
        require(line.find('\n') == std::string::npos, "is one line: " + line);
    }
    return 0;
}
