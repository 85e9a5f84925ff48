#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "player/scenario.h"
#include "player/session.h"

// The player: starts the daemon on a simulated desktop, lets it live through a scenario, and says
// whether everything came as expected.
namespace simulator::player {
namespace {

namespace fs = std::filesystem;

constexpr auto longest_run = std::chrono::minutes(5);

volatile pid_t g_daemon = 0;  // for the signal handler of a desktop that stays

// A folder with everything that belongs to one simulated desktop.
class workplace_t {
  public:
    workplace_t() {
        std::string name = (fs::temp_directory_path() / "qlx-desktop-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder for the desktop: " + name);
        }
        folder = name;
        lay_out();
    }
    explicit workplace_t(fs::path kept) : folder(std::move(kept)), _keep(true) { lay_out(); }
    ~workplace_t() {
        std::error_code ignored;
        if (!_keep) {
            fs::remove_all(folder, ignored);
        }
    }
    workplace_t(const workplace_t&) = delete;
    workplace_t& operator=(const workplace_t&) = delete;

    fs::path home() const { return folder / "home"; }
    fs::path root() const { return folder / "disk"; }
    fs::path tools() const { return folder / "tools"; }
    fs::path report() const { return folder / "report"; }
    fs::path commands() const { return folder / "commands"; }

    fs::path folder;

  private:
    // The user's own `open` and `osascript`, which note what they were called with.
    void lay_out() const {
        fs::create_directories(home() / "Library" / "Application Support");
        fs::create_directories(root() / "Applications");
        fs::create_directories(root() / "Library" / "Application Support");
        fs::create_directories(tools());
        for (const char* const name : {"open", "osascript"}) {
            const fs::path tool = tools() / name;
            std::ofstream(tool) << "#!/bin/sh\n"
                                   "printf '%s\\0' \"$#\" \"${0##*/}\" \"$@\" >>\"$"
                                << variable_commands << "\"\n";
            fs::permissions(tool, fs::perms::owner_all);
        }
    }

    bool _keep = false;
};

pid_t start_daemon(const fs::path& daemon, const workplace_t& place,
                   const std::vector<std::pair<const char*, std::string>>& variables) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error(std::string("fork failed: ") + std::strerror(errno));
    }
    if (child == 0) {
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
        execl(daemon.c_str(), daemon.c_str(), static_cast<char*>(nullptr));
        std::fprintf(stderr, "Error: cannot start %s: %s\n", daemon.c_str(), std::strerror(errno));
        std::_Exit(127);
    }
    return child;
}

// The exit code of the process; 128 and the signal's number where a signal ended it.
int code_of(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Waits for the process; kills it and throws when it does not end in time.
int wait_for_exit(pid_t child) {
    const auto end = std::chrono::steady_clock::now() + longest_run;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= end) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            throw std::runtime_error("the daemon does not end");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return code_of(status);
}

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
            } else {
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

std::string trigger_place(const workplace_t& place) {
    const std::string content = "front_removed\n";
    const bool system = file_text(triggers(place)[0]) == content;
    const bool user = file_text(triggers(place)[1]) == content;
    return system && user ? "both" : system ? "system" : user ? "user" : "none";
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
}

std::vector<std::string> play_run(const fs::path& daemon, const fs::path& file,
                                  const scenario_t& scenario, std::size_t index,
                                  const workplace_t& place) {
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

    const pid_t child = start_daemon(daemon, place,
                                     {{variable_scenario, fs::absolute(file).string()},
                                      {variable_run, std::to_string(index)},
                                      {variable_report, place.report().string()}});
    const int code = wait_for_exit(child);

    const std::string whole_log = file_text(log_file(place.home()));
    const std::string log = whole_log.substr(std::min(log_before, whole_log.size()));
    show_log(log);
    std::printf("\nThe daemon ended with exit code %d: %s.\n", code, meaning_of(code));

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
    const workplace_t place;
    if (scenario.system_support_folder) {
        fs::create_directories(support_folder(place.root()));
    }
    if (scenario.settings) {
        replace_file(settings_file(place.home()), *scenario.settings);
    }
    std::printf("Scenario: %s\n\n", scenario.title.c_str());
    std::size_t unmet = 0;
    for (std::size_t index = 0; index < scenario.runs.size(); ++index) {
        if (index > 0) {
            std::printf("\nThe launcher starts the daemon again.\n\n");
        }
        for (const std::string& what : play_run(daemon, file, scenario, index, place)) {
            std::printf("Not as expected: %s\n", what.c_str());
            ++unmet;
        }
    }
    if (unmet > 0) {
        std::printf("\n%zu expectation(s) not met.\n", unmet);
        return 1;
    }
    std::printf("Everything came as expected.\n");
    return 0;
}

int stay(const fs::path& daemon, const fs::path& folder) {
    const workplace_t place(fs::absolute(folder));
    fs::create_directories(front_application(place.root()));
    std::printf(
        "The daemon runs on a quiet desktop until Ctrl-C.\n"
        "  its settings file: %s\n  its log file:      %s\n",
        settings_file(place.home()).c_str(), log_file(place.home()).c_str());
    // Ctrl-C goes to both processes: the daemon ends by it, the player tells how. Other signals
    // that reach the player alone are handed on.
    std::signal(SIGINT, [](int) {});
    g_daemon = start_daemon(daemon, place, {});
    for (const int signal : {SIGTERM, SIGHUP}) {
        std::signal(signal, [](int number) { kill(g_daemon, number); });
    }
    int status = 0;
    while (waitpid(g_daemon, &status, 0) < 0 && errno == EINTR) {
    }
    const int code = code_of(status);
    std::printf("\nThe daemon ended with exit code %d: %s.\n", code, meaning_of(code));
    constexpr int stopped = 1;
    return code == stopped ? 0 : 1;
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
    try {
        return simulator::player::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 2;
    }
}
