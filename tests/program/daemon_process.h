#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_home.h"
#include "support/wait_until.h"

inline std::string text_of(const std::filesystem::path& file) {
    return temporary_home_t::content_of(file);
}

// The real executable as a child process, on a quiet desktop with a home folder and a disk of its
// own; killed at the end of its scope when it still runs.
class daemon_process_t {
  public:
    using environment_t = std::vector<std::pair<std::string, std::string>>;

    // An empty value takes the variable out of the child's environment.
    daemon_process_t(const std::filesystem::path& folder, std::vector<std::string> arguments,
                     const environment_t& environment)
        : _out(folder / "standard-output"), _error(folder / "standard-error") {
        _pid = fork();
        if (_pid == 0) {
            setpgid(0, 0);  // so that nobody of its own can hide
            for (const auto& [name, value] : environment) {
                if (value.empty()) {
                    unsetenv(name.c_str());
                } else {
                    setenv(name.c_str(), value.c_str(), 1);
                }
            }
            if (std::freopen(_out.c_str(), "w", stdout) == nullptr ||
                std::freopen(_error.c_str(), "w", stderr) == nullptr) {
                std::_Exit(126);
            }
            std::vector<char*> words{const_cast<char*>("QlxDaemon")};
            for (std::string& argument : arguments) {
                words.push_back(argument.data());
            }
            words.push_back(nullptr);
            execv(QLX_DAEMON, words.data());
            std::_Exit(127);
        }
    }
    ~daemon_process_t() {
        if (!_ended) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
    }
    daemon_process_t(const daemon_process_t&) = delete;
    daemon_process_t& operator=(const daemon_process_t&) = delete;

    // Whether it, or a process that it started, is still there.
    bool left_anyone() const { return kill(-_pid, 0) == 0; }
    void signal(int number) const { kill(_pid, number); }
    std::string output() const { return text_of(_out); }
    std::string errors() const { return text_of(_error); }

    // The daemon ignores SIGPIPE from the moment at which all of its signal handlers stand, which
    // is right before its run loop.
    bool wait_until_running() const {
        return wait_until([&] {
            std::ifstream status("/proc/" + std::to_string(_pid) + "/status");
            for (std::string line; std::getline(status, line);) {
                if (line.rfind("SigIgn:", 0) == 0) {
                    const std::uint64_t ignored = std::stoull(line.substr(7), nullptr, 16);
                    return (ignored >> (SIGPIPE - 1) & 1U) != 0;
                }
            }
            return false;
        });
    }

    // The exit code; -1 for an end by a signal, -2 when it does not end.
    int wait_for_exit(std::chrono::milliseconds at_most = std::chrono::seconds(20)) {
        int status = 0;
        _ended = wait_until([&] { return waitpid(_pid, &status, WNOHANG) == _pid; }, at_most);
        return !_ended ? -2 : WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    std::filesystem::path _out;
    std::filesystem::path _error;
    pid_t _pid = -1;
    bool _ended = false;
};
