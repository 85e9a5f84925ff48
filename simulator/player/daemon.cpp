#include "player/daemon.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "player/session.h"

namespace simulator::player {

namespace {

[[noreturn]] void become(const std::filesystem::path& executable, const workplace_t& place,
                         const daemon_t::variables_t& variables) {
    const auto set = [](const char* name, const std::string& value) {
        setenv(name, value.c_str(), 1);
    };
    const char* const path = std::getenv("PATH");
    set("HOME", place.home());
    set("PATH", place.tools().string() + ":" + (path == nullptr ? "" : path));
    set(variable_root, place.root());
    set(variable_commands, place.commands());
    for (const auto& [name, value] : variables) {
        set(name, value);
    }
    execl(executable.c_str(), executable.c_str(), static_cast<char*>(nullptr));
    std::fprintf(stderr, "Error: cannot start %s: %s\n", executable.c_str(), std::strerror(errno));
    std::_Exit(127);
}

}  // namespace

daemon_t::daemon_t(const std::filesystem::path& executable, const workplace_t& place,
                   const variables_t& variables) {
    std::fflush(nullptr);
    const pid_t player = getpid();
    _process = fork();
    if (_process < 0) {
        throw std::runtime_error(std::string("fork failed: ") + std::strerror(errno));
    }
    if (_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != player) {
            std::_Exit(127);  // the player went before this process was tied to it
        }
        std::signal(SIGPIPE, SIG_DFL);
        become(executable, place, variables);
    }
}

daemon_t::~daemon_t() {
    if (!_code) {
        kill(_process, SIGKILL);
        waitpid(_process, nullptr, 0);
    }
}

void daemon_t::signal(int number) const {
    kill(_process, number);
}

std::optional<int> daemon_t::ended() {
    int status = 0;
    if (!_code && waitpid(_process, &status, WNOHANG) == _process) {
        _code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if (!_code) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return _code;
}

}  // namespace simulator::player
