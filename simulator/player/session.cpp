#include "player/session.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

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
    return __real_main(argc, argv);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
