// Whole lives of the daemon, each played again and again with another of its calls failing: the
// first, the second, and so on until a life meets no failure. Each life is a process of its own.

#include <sys/wait.h>

#include "common/log/log.h"
#include "failures/failing.h"
#include "player/session.h"
#include "support/supported_mouse.h"
#include "support/test.h"

// The daemon's main function, by the name under which this program is given it.
int daemon_main(int argc, char** argv);

namespace {

namespace fs = std::filesystem;
using namespace simulator::player;

// The side button's action; 6 to 8 press C, X and V, whose codes are 8, 7 and 9.
std::string settings_with(int action) {
    return R"({"appState": [{"type": 1, "appConfigs": {"Default": {"4": [{"action": )" +
           std::to_string(action) + "}]}}}]}" + std::string(static_cast<std::size_t>(action), ' ');
}
constexpr auto old_rights = R"({"accessibility":false,"input_monitoring":false})";

constexpr auto life_argument = "--life";

// How a life ended, as the exit code of its process.
enum verdict_e { ended_at_once = 1, survived = 60, met_no_failure = 61, did_not_survive = 62 };

class life_t;

struct story_t {
    std::vector<const char*> arguments{};
    // What happens once the daemon listens; it ends the daemon.
    std::function<void(life_t&)> then{};
    bool failures_from_the_start = true;  // else from `then` on
    std::set<int> exit_codes = {1, 77};
    bool front_application = true;
    std::vector<means_e> means = {means_e::call, means_e::calls_from_then_on};
};

std::size_t entries_of(const char* folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

bool is_whole(const std::string& rights) {
    return rights == old_rights ||
           (rights.starts_with("{\n    \"accessibility\": ") && rights.ends_with("e\n}"));
}

// The watch on the front application stands: the watcher has asked its queue for it, and waits.
void wait_for_watch() {
    while (simulator::counted_calls("kevent") < 2) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

// One life in this process. Complains on standard error.
class life_t {
  public:
    life_t(const story_t& story, std::size_t number, means_e means)
        : _story(story), _number(number), _means(means) {
        write_settings(6);
        replace_file(rights_file(home()), old_rights);
        if (story.front_application) {
            fs::create_directories(front_application(_folder));
        }
        simulator::set_tap_patience(std::chrono::seconds(5));  // room for a busy machine
        _mouse = connect_supported();
        simulator::fail_call_number(0);
        click();  // the desktop's own thread stands from here on
    }

    verdict_e play() {
        const std::size_t descriptors = entries_of("/proc/self/fd");
        const std::size_t threads = entries_of("/proc/self/task");
        std::thread hand([&] {
            const failing_calls::test_s_own_t own;
            while (!_ended && !simulator::wait_for_run_loop(std::chrono::milliseconds(5))) {
            }
            if (!_ended && _story.then) {
                if (!_story.failures_from_the_start) {
                    wait_for_watch();
                    click(2);  // it knows the mouse for good
                    begin_failing(_means, _number);
                }
                _story.then(*this);
            }
        });
        std::vector<char*> arguments{const_cast<char*>("QlxDaemon")};
        for (const char* argument : _story.arguments) {
            arguments.push_back(const_cast<char*>(argument));
        }
        if (_story.failures_from_the_start) {
            begin_failing(_means, _number);
        }
        const int code = daemon_main(static_cast<int>(arguments.size()), arguments.data());
        _ended = true;
        hand.join();
        const std::string failed = _failed + end_failing();
        // Before the click, which a tap that nobody answers does not outlive.
        expect(simulator::taps_enabled() == 0, "no tap is enabled");
        click();
        simulator::shut_down();

        std::fprintf(stderr, "call %zu (%s) failed, exit code %d\n", _number, failed.c_str(), code);
        expect(_story.exit_codes.count(code) == 1, "an exit code that it has");
        // A capture that could not be set up as a whole goes with the process; see
        // hook_manager.cpp.
        const bool abandoned = log_holds("Error creating hook manager");
        for (const std::string& object : simulator::objects_alive()) {
            expect(abandoned, "not owned: " + object);
        }
        expect(abandoned || simulator::taps_alive() == 0, "no tap stands");
        expect(simulator::kernel_queues_open() == 0, "no kernel queue");
        // The log file with the thread that flushes it, and the settings watcher's thread stay.
        expect(entries_of("/proc/self/fd") <= descriptors + 1, "no descriptor");
        expect(entries_of("/proc/self/task") <= threads + 2, "no thread");
        expect(file_text(settings_file(home())) == _settings, "the settings are untouched");
        expect(is_whole(file_text(rights_file(home()))), "the rights are whole");
        for (const auto& file : fs::directory_iterator(support_folder(home()))) {
            expect(file.path().extension() != ".tmp", "no temporary file");
        }
        for (const auto& event : simulator::events()) {
            expect(event.outcome != simulator::event_outcome_e::under_way, "every event arrives");
        }
        return !_survived ? did_not_survive : failed.empty() ? met_no_failure : survived;
    }

    // Other settings, of which the failure may keep the daemon, and then others, which it takes.
    void reload() {
        failing_calls::during_next_read([this] { click(2); });  // which does not wait for it
        write_settings(7);
        const auto seen = [this] { return _ended || log_holds("Config change detected"); };
        (void)wait_until([&] { return has_failed() || seen(); });
        (void)wait_until(seen, std::chrono::milliseconds(700));
        _failed = end_failing();
        const std::int64_t key = key_of_click();
        expect(key == 8 || key == 7, "the old binding or the new one");
        write_settings(8);
        expect(wait_until([this] { return _ended || key_of_click() == 9; }),
               "the next change counts");
        failing_calls::during_next_read({});
        stop();
    }

    void stop() { kill(getpid(), SIGTERM); }

  private:
    fs::path home() const { return _folder / "home"; }

    void expect(bool holds, const std::string& what) {
        if (!holds) {
            std::fprintf(stderr, "  not true: %s\n", what.c_str());
            _survived = false;
        }
    }

    void click(std::uint32_t button = 3) const {
        simulator::press(_mouse, button);
        simulator::release(_mouse, button);
        (void)simulator::settle(simulator::run_loop_e::leave);
    }

    void write_settings(int action) {
        _settings = settings_with(action);
        replace_file(settings_file(home()), _settings);
    }

    bool log_holds(const std::string& text) const {
        utils::logger_list()[utils::app]->flush();
        return file_text(log_file(home())).find(text) != std::string::npos;
    }

    // The key that the side button presses with Command; 0 when it does not.
    std::int64_t key_of_click() const {
        simulator::forget_events();
        simulator::move_to(_mouse, {100, 100});
        (void)simulator::settle(simulator::run_loop_e::leave);
        click();
        (void)simulator::wait_for_posted(4, std::chrono::seconds(5));
        for (const auto& event : simulator::events()) {
            if (event.type == kCGEventKeyUp) {
                return event.key_code;
            }
        }
        return 0;
    }

    const story_t& _story;
    const fs::path _folder = std::getenv(variable_root);
    std::size_t _number;
    means_e _means;
    simulator::device_id_t _mouse = 0;
    std::string _settings;
    std::string _failed;
    std::atomic<bool> _ended = false;
    std::atomic<bool> _survived = true;
};

const std::map<std::string, story_t>& stories() {
    static const std::map<std::string, story_t> all = [] {
        std::map<std::string, story_t> made;
        const auto stop = [](life_t& life) { life.stop(); };
        made["start and stop"] = {.then = stop};
        made["start without the front application"] = {
            .then = stop, .front_application = false, .means = {means_e::call}};
        made["lost permission"] = {
            .then = [](life_t&) { simulator::revoke(simulator::permission_e::accessibility); },
            .failures_from_the_start = false,
            .means = {std::begin(all_means), std::end(all_means)}};
        made["reload"] = {.then = [](life_t& life) { life.reload(); },
                          .failures_from_the_start = false,
                          .means = {std::begin(all_means), std::end(all_means)}};
        made["removed front application"] = {
            .then = [](life_t&) { fs::remove_all(front_application(std::getenv(variable_root))); },
            .failures_from_the_start = false};
        for (const char* query : {"check-rights", "list-mice", "version", "help", "nonsense"}) {
            made[std::string("query ") + query] = {.arguments = {query}, .exit_codes = {0, 1}};
        }
        return made;
    }();
    return all;
}

// Starts this program for one life, with its output in the folder.
pid_t start_life(const std::string& story, std::size_t number, means_e means,
                 const fs::path& folder) {
    const std::string count = std::to_string(number);
    const std::string home = (folder / "home").string();
    const std::string output = (folder / "output").string();
    const pid_t child = fork();
    if (child == 0) {
        setenv("HOME", home.c_str(), 1);
        setenv(variable_root, folder.c_str(), 1);
        // Another code than the daemon has: a report must not be taken for one of its ends.
        setenv("ASAN_OPTIONS", "exitcode=99", 1);
        setenv("UBSAN_OPTIONS", "exitcode=99", 1);
        if (std::freopen(output.c_str(), "w", stdout) != nullptr &&
            dup2(fileno(stdout), STDERR_FILENO) >= 0) {
            execl("/proc/self/exe", "sweep_test", life_argument, story.c_str(), count.c_str(),
                  std::to_string(static_cast<int>(means)).c_str(), nullptr);
        }
        std::_Exit(did_not_survive);
    }
    return child;
}

// Plays the story until a life meets no failure, and says how many there were.
void sweep(const std::string& story) {
    std::string made = (fs::temp_directory_path() / "qlx-sweep-XXXXXX").string();
    ASSERT_NE(mkdtemp(made.data()), nullptr);
    const fs::path base = made;
    std::size_t injected = 0;
    std::size_t alive_after = 0;
    std::size_t ended = 0;
    for (const means_e means : stories().at(story).means) {
        std::map<pid_t, fs::path> running;
        const std::size_t before = injected;
        bool to_the_end = false;
        const auto wait_for_one = [&] {
            int status = 0;
            const pid_t child = wait(&status);
            const fs::path folder = running.at(child);
            running.erase(child);
            int verdict = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            if (verdict == ended_at_once && means == means_e::allocation &&
                file_text(folder / "output").ends_with("Error: no way to go on\n") &&
                is_whole(file_text(rights_file(folder / "home")))) {
                verdict = survived;  // memory refused where nothing may throw
                ++ended;
            }
            to_the_end = to_the_end || verdict != survived;
            injected += verdict == met_no_failure ? 0 : 1;
            alive_after += verdict == survived ? 1 : 0;
            if (verdict != survived && verdict != met_no_failure) {
                ADD_FAILURE() << story << ", status " << status << ":\n"
                              << file_text(folder / "output")
                              << file_text(log_file(folder / "home"));
            }
            fs::remove_all(folder);
        };
        for (std::size_t number = 1; !to_the_end; ++number) {
            const fs::path folder = base / std::to_string(number);
            fs::create_directories(folder / "Library");
            const pid_t child = start_life(story, number, means, folder);
            ASSERT_GT(child, 0);
            running.emplace(child, folder);
            while (running.size() >= 24) {
                wait_for_one();
            }
        }
        while (!running.empty()) {
            wait_for_one();
        }
        EXPECT_GT(injected, before);
    }
    fs::remove_all(base);
    // At a few places nothing may throw; they are lives, so one may count more than once.
    EXPECT_LE(ended, 6U);
    std::printf("sweep %s: %zu failures injected, %zu survived\n", story.c_str(), injected,
                alive_after);
}

}  // namespace

class sweep_test : public testing::TestWithParam<std::string> {};

TEST_P(sweep_test, survives_each_failure) {
    sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(stories, sweep_test, testing::ValuesIn([] {
                             lines_t names;
                             for (const auto& [name, story] : stories()) {
                                 names.push_back(name);
                             }
                             return names;
                         }()));

int main(int argc, char** argv) {
    if (argc == 5 && std::string(argv[1]) == life_argument) {
        alarm(60);
        const auto means = static_cast<means_e>(std::stoi(argv[4]));
        return life_t(stories().at(argv[2]), std::stoul(argv[3]), means).play();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
