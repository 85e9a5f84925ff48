#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "player/workplace.h"

namespace simulator::player {

// The daemon as a process on the desktop of a workplace. It ends with its owner, and also when the
// player is killed. Main thread.
class daemon_t {
  public:
    using variables_t = std::vector<std::pair<const char*, std::string>>;

    // Throws where there is no process to be had; an executable that cannot be started ends with
    // 127.
    daemon_t(const std::filesystem::path& executable, const workplace_t& place,
             const variables_t& variables);
    ~daemon_t();
    daemon_t(const daemon_t&) = delete;
    daemon_t& operator=(const daemon_t&) = delete;

    void signal(int number) const;

    // The exit code, 128 and the signal's number where a signal ended it; none while it lives,
    // which takes a moment to say.
    std::optional<int> ended();

  private:
    pid_t _process = -1;
    std::optional<int> _code;
};

}  // namespace simulator::player
