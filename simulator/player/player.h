#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "player/effects.h"
#include "player/scenario.h"

namespace simulator::player {

// Plays one run of a scenario inside the daemon's process: it is the hand, and the one who watches
// the screen. It tells on standard output what it does and sees. Its own thread plays; making it
// and `prepare` belong to the time before main.
class player_t {
  public:
    // `home` is the user's home folder, `root` stands for the root of the disk, `report` is the
    // file that gets what was not met, `commands` is the one that effects_t reads.
    player_t(scenario_t scenario, std::size_t run, std::filesystem::path home,
             std::filesystem::path root, std::filesystem::path report,
             std::filesystem::path commands);

    // Sets the permissions, plugs the devices in and opens the applications.
    void prepare();

    // Waits for the daemon to run its run loop, carries out all steps, and ends the daemon with a
    // signal where the last step did not.
    void play();

    // The daemon's main function has returned: nothing is waited for any more. Any thread.
    void daemon_ended();

    const std::vector<std::string>& left_behind() const { return _run.left_behind; }

    // Once `play` has returned and the daemon has ended: reports what no step expected.
    void look_back();

  private:
    // Waits until the daemon runs its run loop, or waits for the user itself. False: it has ended.
    bool _wait_for_daemon() const;
    void _play_step(const step_t& step);
    void _move_there(const step_t& step);  // over the application of the step, if it has one
    void _do(const step_t& step);
    void _check(const step_t& step, std::size_t first_event);
    void _note_met(const step_t& step) const;
    void _check_events(const step_t& step, std::size_t first_event);
    void _check_log(const step_t& step);
    void _check_active_model(const step_t& step);
    // Takes what came since the last call into the lists of keys and effects, and tells it.
    void _look();
    bool _wait_until(const std::function<bool()>& condition) const;
    void _unmet(const std::string& where, const std::string& what);
    void _report(const std::string& line);
    std::string _device_name(const step_t& step) const;

    scenario_t _scenario;
    run_t _run;
    std::filesystem::path _home;
    std::filesystem::path _root;
    std::filesystem::path _report_file;
    std::map<std::string, device_id_t> _devices;

    std::size_t _unmet_count = 0;
    bool _holding = false;  // the daemon's next answer is held back
    std::size_t _events_seen = 0;
    effects_t _effects_source;
    std::vector<std::string> _keys;     // posted, and not yet expected by a step
    std::vector<std::string> _effects;  // seen, and not yet expected by a step
    std::size_t _log_begin = 0;         // bytes of the log from earlier runs
    std::size_t _log_read = 0;          // bytes of the log up to the last text that a step expected
    std::atomic<bool> _ended = false;
};

}  // namespace simulator::player
