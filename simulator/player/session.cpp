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
#include "control/kernel_queue.h"
#include "control/objects.h"
#include "player/object_reader.h"
#include "player/player.h"
#include "player/words.h"

// Linked into the daemon's executable on a simulated desktop. Where the player started the process,
// the desktop wakes up right before the daemon's main function (the linker sends the process here
// first: --wrap=main), and a thread of the player's is the hand.
namespace simulator::player {
namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// The hand of this process, and the thread on which it plays.
class session_t {
  public:
    session_t() {
        const std::string scenario = variable(variable_scenario);
        if (scenario.empty()) {
            return;  // a quiet desktop, with both permissions granted
        }
        _player = std::make_unique<player_t>(
            read_scenario(scenario), std::stoul(variable(variable_run)), variable("HOME"),
            variable(variable_root), variable(variable_report), variable(variable_commands));
        _player->prepare();
        _thread = std::thread([this] {
            try {
                _player->play();
            } catch (const std::exception& error) {
                tell("UNMET", std::string("the player failed: ") + error.what());
                std::_Exit(2);
            }
        });
    }
    session_t(const session_t&) = delete;
    session_t& operator=(const session_t&) = delete;

    // After the daemon's main function.
    ~session_t() {
        if (_player != nullptr) {
            _player->daemon_ended();
            _thread.join();
            _player->look_back();
        }
    }

    std::vector<std::string> left_behind() const {
        return _player == nullptr ? std::vector<std::string>() : _player->left_behind();
    }

  private:
    std::unique_ptr<player_t> _player;
    std::thread _thread;
};

// What the daemon has not given back by the time its main function returns.
void say_what_is_left(const std::vector<std::string>& expected) {
    std::vector<std::string> left = objects_alive();
    if (taps_alive() > 0) {
        left.push_back(std::to_string(taps_alive()) + " event tap(s)");
    }
    if (kernel_queues_open() > 0) {
        left.push_back(std::to_string(kernel_queues_open()) + " kernel queue(s)");
    }
    if (left == expected) {
        return;
    }
    const std::string text = in_one_line("the daemon leaves behind: " + list_text(left) +
                                         "; expected " + list_text(expected));
    std::fprintf(stderr, "%s\n", text.c_str());
    if (const std::string report = variable(variable_report); !report.empty()) {
        std::ofstream(report, std::ios::app) << report_unmet << text << "\n";
    }
}

}  // namespace
}  // namespace simulator::player

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker asks for.
extern "C" {

int __real_main(int argc, char** argv);

int __wrap_main(int argc, char** argv) {
    try {
        int code = 0;
        std::vector<std::string> expected;
        {
            const simulator::player::session_t session;
            expected = session.left_behind();
            code = __real_main(argc, argv);
        }
        simulator::player::say_what_is_left(expected);
        return code;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 2;
    }
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
