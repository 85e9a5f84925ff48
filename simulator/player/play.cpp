#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "player/daemon.h"
#include "player/scenario.h"
#include "player/session.h"
#include "player/story.h"
#include "player/workplace.h"

// The player: starts the daemon on a simulated desktop, lets it live through a scenario, and says
// whether everything came as expected.
namespace simulator::player {
namespace {

namespace fs = std::filesystem;

using std::chrono::steady_clock;

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t g_signal = 0;  // the one that came last; 0: none

// The player is ended by a signal.
struct interrupted_t {
    int signal;
};

// How long a daemon may give no sign of life, or not do what a signal asks of it.
std::chrono::seconds patience() {
    const char* const seconds = std::getenv("QLX_PLAYER_PATIENCE");
    try {
        return std::chrono::seconds(seconds == nullptr ? 30 : std::stoi(seconds));
    } catch (const std::logic_error&) {
        throw std::runtime_error("QLX_PLAYER_PATIENCE is \"" + std::string(seconds) +
                                 "\", no number of seconds");
    }
}

// How far a run has come, by what the part inside the daemon's process reports.
class progress_t {
  public:
    progress_t(const workplace_t& place, const run_t& run) : _place(place), _run(run) {}

    // Whether there has been no sign of life for longer than the step takes by itself.
    bool stands_still() {
        const std::string report = file_text(_place.report());
        if (report.size() != _size) {
            _size = report.size();
            _since = steady_clock::now();
            _begun = 0;
            std::istringstream lines(report);
            for (std::string line; std::getline(lines, line);) {
                _begun += line == report_begun ? 1 : 0;
                _played = _played || line == report_played;
            }
        }
        const auto own_time =
            _begun == 0 ? std::chrono::milliseconds(0) : _run.steps.at(_begun - 1).after;
        return steady_clock::now() - _since >= patience() + own_time;
    }

    std::string where() const {
        return _played       ? "after the last step"
               : _begun == 0 ? "before the first step"
                             : "at " + _run.steps.at(_begun - 1).where;
    }

  private:
    const workplace_t& _place;
    const run_t& _run;
    steady_clock::time_point _since = steady_clock::now();
    std::size_t _size = 0;
    std::size_t _begun = 0;
    bool _played = false;
};

const char* meaning_of(int code) {
    switch (code) {
        case 1:
            return "it stopped, as it was asked to, or failed to start (the log tells)";
        case 77:
            return "a permission is missing, or an event tap was disabled; its launcher tries "
                   "again";
        default:
            return "which the daemon itself never uses for a run";
    }
}

// What the log has got since it had `before` bytes.
std::string log_since(const workplace_t& place, std::size_t before) {
    const std::string log = file_text(log_file(place.home()));
    return log.size() < before ? log : log.substr(before);  // a shorter one has rotated
}

void show_log(const std::string& log) {
    std::printf(
        "\nThe daemon's log (\"Ending on signal\" and \"kevent(wait) failed\" belong to an ordered "
        "stop):\n");
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        constexpr std::size_t longest = 160;
        std::printf("  %s%s\n", line.substr(0, longest).c_str(),
                    line.size() > longest ? " ..." : "");
    }
}

void show_end_of_log(const std::string& log) {
    constexpr int last_lines = 20;
    std::size_t begin = log.size();
    for (int line = 0; line <= last_lines && begin != std::string::npos; ++line) {
        begin = begin == 0 ? std::string::npos : log.rfind('\n', begin - 1);
    }
    show_log(begin == std::string::npos ? log : log.substr(begin + 1));
}

class judge_t {
  public:
    void unmet(const std::string& what) { _unmet.push_back(what); }

    // `log` has its lines as "[E] message".
    void expect_lines(const std::string& log, const std::vector<std::string>& texts) {
        std::size_t at = 0;
        for (const std::string& text : texts) {
            const std::size_t found = log.find(text, at);
            if (found == std::string::npos) {
                unmet("the log does not say \"" + text + "\" (in this order)");
                return;
            }
            at = found + text.size();
        }
    }

    // What the part inside the daemon's process found.
    void read_report(const std::string& report, const run_t& run) {
        bool played = false;
        std::size_t begun = 0;
        std::istringstream lines(report);
        for (std::string line; std::getline(lines, line);) {
            if (line == report_played) {
                played = true;
            } else if (line == report_begun) {
                ++begun;
            } else if (line.starts_with(report_unmet)) {
                unmet(line.substr(std::strlen(report_unmet)));
            }
        }
        // Where the daemon ends by itself it may be gone before the hand begins to wait for that.
        const bool ends_itself =
            !run.steps.empty() && std::holds_alternative<exit_t>(run.steps.back().deed);
        if (ends_itself ? begun + 1 < run.steps.size() : !run.steps.empty() && !played) {
            unmet("the daemon ended before the last step");
        }
    }

    const std::vector<std::string>& all() const { return _unmet; }

  private:
    std::vector<std::string> _unmet;
};

// The log without times and places: each line as "[E] message".
std::string without_places(const std::string& log) {
    std::string short_log;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t level = line.find("] [");
        const std::size_t program = line.find("] [QlxDaemon:");
        const std::size_t message = line.find("] ", program + 3);
        const bool whole = level != std::string::npos && program != std::string::npos &&
                           message != std::string::npos;
        short_log += (whole ? line.substr(level + 2, 4) + line.substr(message + 2) : line) + "\n";
    }
    return short_log;
}

std::vector<fs::path> triggers(const workplace_t& place) {
    return {support_folder(place.root()) / ".uninstall_request",
            support_folder(place.home()) / ".uninstall_request"};
}

// Where a trigger is: what it holds does not matter to those who wait for it.
std::string trigger_place(const workplace_t& place) {
    const bool system = fs::exists(triggers(place)[0]);
    const bool user = fs::exists(triggers(place)[1]);
    return system && user ? "both folders" : system ? "system" : user ? "user" : "none";
}

void judge_files(const run_t& run, const workplace_t& place, judge_t& judge) {
    if (run.rights_file) {
        const std::string text = file_text(rights_file(place.home()));
        if (text != *run.rights_file) {
            judge.unmet("the rights file holds: " + text);
        }
    }
    if (run.uninstall_trigger && *run.uninstall_trigger != trigger_place(place)) {
        judge.unmet("the uninstall trigger is in: " + trigger_place(place));
    }
    for (const fs::path& trigger : triggers(place)) {
        if (const std::string text = file_text(trigger);
            fs::exists(trigger) && text != "front_removed\n") {
            judge.unmet("the uninstall trigger holds: " + text);
        }
    }
}

std::vector<std::string> play_run(const fs::path& daemon, const fs::path& file,
                                  const scenario_t& scenario, std::size_t index,
                                  workplace_t& place) {
    const run_t& run = scenario.runs[index];
    const fs::path bundle = front_application(place.root());
    fs::remove_all(bundle);
    switch (run.front_application) {
        case front_application_e::bundle:
            fs::create_directories(bundle);
            break;
        case front_application_e::plain_file:
            replace_file(bundle, "");
            break;
        case front_application_e::nothing:
            break;
    }
    for (const fs::path& trigger : triggers(place)) {
        fs::remove(trigger);
    }
    fs::remove(place.report());
    const std::size_t log_before = file_text(log_file(place.home())).size();

    note("run", std::to_string(index + 1) + " of " + std::to_string(scenario.runs.size()));
    daemon_t process(daemon, place,
                     {{variable_scenario, fs::absolute(file).string()},
                      {variable_run, std::to_string(index)},
                      {variable_report, place.report().string()}});
    progress_t progress(place, run);
    std::optional<int> ended;
    while (!(ended = process.ended()) && g_signal == 0) {
        if (progress.stands_still()) {
            place.keep();
            show_end_of_log(log_since(place, log_before));
            return {"the daemon does not end, " + progress.where() +
                    "; its folder stays: " + place.folder.string()};
        }
    }
    if (g_signal != 0) {
        throw interrupted_t{g_signal};
    }
    const int code = *ended;

    const std::string log = log_since(place, log_before);
    show_log(log);
    std::printf("\nThe daemon ended with exit code %d: %s.\n", code, meaning_of(code));
    note("end", "exit code " + std::to_string(code) + ": " + meaning_of(code));
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        note("log", line);
    }

    judge_t judge;
    judge.read_report(file_text(place.report()), run);
    if (code != run.exit_code) {
        judge.unmet("the exit code is " + std::to_string(code) + "; expected " +
                    std::to_string(run.exit_code));
    }
    judge.expect_lines(without_places(log), run.log);
    judge_files(run, place, judge);
    return judge.all();
}

int play(const fs::path& daemon, const fs::path& file) {
    const scenario_t scenario = read_scenario(file);
    workplace_t place;
    if (scenario.system_support_folder) {
        fs::create_directories(support_folder(place.root()));
    }
    if (scenario.settings) {
        replace_file(settings_file(place.home()), *scenario.settings);
    }
    std::printf("Scenario: %s\n\n", scenario.title.c_str());
    note("title", scenario.title);
    std::size_t unmet = 0;
    for (std::size_t index = 0; index < scenario.runs.size(); ++index) {
        if (index > 0) {
            std::printf("\nThe launcher starts the daemon again.\n\n");
        }
        for (const std::string& what : play_run(daemon, file, scenario, index, place)) {
            std::printf("Not as expected: %s\n", what.c_str());
            note("UNMET", what);
            ++unmet;
        }
    }
    const std::string verdict = unmet == 0 ? "Everything came as expected."
                                           : std::to_string(unmet) + " expectation(s) not met.";
    std::printf("%s%s\n", unmet == 0 ? "" : "\n", verdict.c_str());
    note("verdict", verdict);
    return unmet == 0 ? 0 : 1;
}

int stay(const fs::path& daemon, const fs::path& folder) {
    const workplace_t place(fs::absolute(folder));
    fs::create_directories(front_application(place.root()));
    std::printf(
        "The daemon runs on a quiet desktop until Ctrl-C.\n"
        "  its settings file: %s\n  its log file:      %s\n",
        settings_file(place.home()).c_str(), log_file(place.home()).c_str());
    const std::size_t log_before = file_text(log_file(place.home())).size();
    daemon_t process(daemon, place, {});
    std::optional<steady_clock::time_point> asked;
    std::optional<int> ended;
    while (!(ended = process.ended())) {
        if (g_signal != 0) {
            // Ctrl-C has gone to both processes, other signals to the player alone.
            process.signal(g_signal);
            g_signal = 0;
            asked = asked.value_or(steady_clock::now());
        }
        if (asked && steady_clock::now() - *asked >= patience()) {
            show_end_of_log(log_since(place, log_before));
            std::printf("\nThe daemon does not end, and is killed.\n");
            return 1;
        }
    }
    std::printf("\nThe daemon ended with exit code %d: %s.\n", *ended, meaning_of(*ended));
    const std::string log = log_since(place, log_before);
    constexpr int stopped = 1;
    if (*ended == stopped && log.find("Daemon stopped") != std::string::npos &&
        log.find("Error creating hook manager") == std::string::npos) {
        return 0;
    }
    show_end_of_log(log);
    std::printf("\nIt has not run, or has not stopped in order.\n");
    return 1;
}

int run(const std::vector<std::string>& arguments) {
    if (arguments.size() == 3 && arguments[1] == "--stay") {
        return stay(arguments[0], arguments[2]);
    }
    if (arguments.size() == 2) {
        return play(arguments[0], arguments[1]);
    }
    std::fprintf(stderr,
                 "Usage: play_scenario DAEMON SCENARIO\n"
                 "       play_scenario DAEMON --stay FOLDER\n");
    return 2;
}

}  // namespace
}  // namespace simulator::player

int main(int argc, char** argv) {
    for (const int signal : simulator::player::ending_signals) {
        std::signal(signal, [](int number) { simulator::player::g_signal = number; });
    }
    std::signal(SIGPIPE,
                SIG_IGN);  // whoever reads what is told may go; the folder goes all the same
    try {
        return simulator::player::run({argv + 1, argv + argc});
    } catch (const simulator::player::interrupted_t& interrupted) {
        std::printf("\nEnded by a signal (%s): the daemon is ended, and its folder removed.\n",
                    strsignal(interrupted.signal));
        std::fflush(nullptr);
        std::signal(interrupted.signal, SIG_DFL);
        return std::raise(interrupted.signal);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 2;
    }
}
