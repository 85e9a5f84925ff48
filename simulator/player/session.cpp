#include "player/session.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "control/input.h"
#include "control/objects.h"
#include "player/player.h"

// Linked into the daemon's executable on a simulated desktop. Where the player started the process,
// the desktop wakes up right before the daemon's main function (the linker sends the process here
// first: --wrap=main), and a thread of the player's is the hand.
namespace simulator::player {
namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void begin() {
    const std::string scenario = variable(variable_scenario);
    if (scenario.empty()) {
        return;  // a quiet desktop, with both permissions granted
    }
    auto player = std::make_shared<player_t>(
        read_scenario(scenario), std::stoul(variable(variable_run)), variable("HOME"),
        variable(variable_root), variable(variable_report), variable(variable_commands));
    player->prepare();
    // The thread ends with the process: the daemon's end is what it plays for.
    std::thread([player] {
        try {
            player->play();
        } catch (const std::exception& error) {
            tell("UNMET", std::string("the player failed: ") + error.what());
            std::_Exit(2);
        }
    }).detach();
}

// What the daemon must have given back by the time its main function returns.
void say_what_is_left() {
    std::vector<std::string> left = objects_alive();
    if (taps_alive() > 0) {
        left.push_back(std::to_string(taps_alive()) + " event tap(s)");
    }
    for (const std::string& what : left) {
        const std::string text = "the daemon leaves behind: " + what;
        std::fprintf(stderr, "%s\n", text.c_str());
        if (const std::string report = variable(variable_report); !report.empty()) {
            std::ofstream(report, std::ios::app) << report_unmet << text << "\n";
        }
    }
}

}  // namespace
}  // namespace simulator::player

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker asks for.
extern "C" {

int __real_main(int argc, char** argv);

int __wrap_main(int argc, char** argv) {
    try {
        simulator::player::begin();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 2;
    }
    const int code = __real_main(argc, argv);
    simulator::player::say_what_is_left();
    return code;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
