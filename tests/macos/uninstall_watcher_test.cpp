#include "macos/uninstall_watcher.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/event.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

#include "control/objects.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace fs = std::filesystem;
using lines_t = std::vector<std::string>;

namespace {

const std::string trigger_content = "front_removed\n";
const std::string changed_line = "I Front app changed (DELETE/RENAME/REVOKE) → uninstall";
const std::string woken_line =
    "E kevent(wait) failed (errno=" + std::to_string(EBADF) + "), stopping watcher";
const std::string stopped_line = "I Uninstall watcher stopped";

// With a queue opened and closed before, since the simulated desktop frees what stands behind
// closed queues when the next one is opened.
std::size_t descriptors_open() {
    close(kqueue());
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator()));
}

// Folders that stand for the machine's, and what is seen of a watcher on them.
class uninstall_watcher : public testing::Test {
  protected:
    uninstall_watcher() {
        fs::create_directories(bundle / "Contents");
        fs::create_directories(system);
    }

    std::unique_ptr<uninstall_watcher_t> watch() {
        return std::make_unique<uninstall_watcher_t>(
            [this] {
                ++quits;
                quit_thread = std::this_thread::get_id();
            },
            bundle.string(), system.string(), user.string());
    }

    std::string armed_line() const { return "I Uninstall watcher armed on " + bundle.string(); }
    fs::path system_trigger() const { return system / ".uninstall_request"; }
    fs::path user_folder() const {
        return user / "Library" / "Application Support" / "QlxControlCenter";
    }
    fs::path user_trigger() const { return user_folder() / ".uninstall_request"; }

    temporary_home_t home;
    const fs::path bundle = home.path() / "Front.app";
    const fs::path system = home.path() / "system";
    const fs::path user = home.path() / "user";
    log_capture_t log;
    std::atomic<int> quits{0};
    std::atomic<std::thread::id> quit_thread{};
};

}  // namespace

TEST_F(uninstall_watcher, every_way_of_going_writes_the_trigger_and_calls_back_once) {
    const struct {
        const char* name;
        std::function<void()> go;
    } ways[] = {
        {"deleted", [this] { fs::remove_all(bundle); }},
        {"renamed", [this] { fs::rename(bundle, home.path() / "Other.app"); }},
    };
    for (const auto& [name, go] : ways) {
        SCOPED_TRACE(name);
        fs::create_directories(bundle / "Contents");
        fs::remove(system_trigger());
        log.forget();
        quits = 0;

        auto watcher = watch();
        ASSERT_TRUE(log.wait_for(armed_line()));
        // What happens inside the bundle, as by an update of its files, is not its going.
        std::ofstream(bundle / "Contents" / "file") << "new";
        go();
        ASSERT_TRUE(log.wait_for(stopped_line));
        watcher.reset();
        EXPECT_EQ(log.lines(),
                  (lines_t{armed_line(), changed_line,
                           "I Wrote uninstall trigger (system): " + system_trigger().string(),
                           stopped_line}));
        EXPECT_EQ(temporary_home_t::content_of(system_trigger()), trigger_content);
        EXPECT_EQ(quits, 1);
        EXPECT_NE(quit_thread.load(), std::this_thread::get_id());
    }
    EXPECT_FALSE(fs::exists(user_folder()));
}

TEST_F(uninstall_watcher, destruction_at_any_moment_of_the_setup_ends_the_thread) {
    watch().reset();
    const auto descriptors = descriptors_open();
    for (int i = 0; i < 600; ++i) {
        const int before = quits;
        auto watcher = watch();
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(i / 3);
        while (std::chrono::steady_clock::now() < until) {
        }
        watcher.reset();
        ASSERT_LE(quits - before, 1);
    }
    EXPECT_EQ(log.count(stopped_line), static_cast<std::size_t>(quits));
    EXPECT_EQ(log.count(armed_line()), static_cast<std::size_t>(quits));
    log.forget();
    quits = 0;
    auto watcher = watch();
    ASSERT_TRUE(log.wait_for(armed_line()));
    const auto start = std::chrono::steady_clock::now();
    watcher.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(quits, 1) << "and from the wait always";
    // The thread may have been on its way into the wait still, and then sees the request first.
    EXPECT_TRUE(log.lines() == (lines_t{armed_line(), woken_line, stopped_line}) ||
                log.lines() == (lines_t{armed_line(), stopped_line}));
    EXPECT_EQ(descriptors_open(), descriptors);
    EXPECT_FALSE(fs::exists(system_trigger()));
}

TEST_F(uninstall_watcher, watch_that_cannot_be_set_up_ends_without_trigger_and_callback) {
    simulator::fail_next("kqueue");
    if (const int queue = kqueue(); queue >= 0) {
        close(queue);
        GTEST_SKIP() << "the machine's own kernel queues cannot be made to fail";
    }
    const auto descriptors = descriptors_open();
    for (const auto& [refused, line] :
         {std::pair("kqueue", "E kqueue() failed (errno=" + std::to_string(EMFILE) + ")"),
          std::pair("kevent", "E kevent(ADD) failed (errno=" + std::to_string(ENOMEM) + ")")}) {
        log.forget();
        simulator::fail_next(refused);
        const auto watcher = watch();
        ASSERT_TRUE(log.wait_for(line));
    }
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(quits, 0);
    EXPECT_FALSE(fs::exists(system_trigger()));
    EXPECT_EQ(descriptors_open(), descriptors);
}

TEST_F(uninstall_watcher, signal_that_interrupts_the_wait_does_not_end_it) {
    static std::atomic<int> interruptions{0};
    std::signal(SIGUSR1, [](int) { ++interruptions; });
    auto watcher = watch();
    ASSERT_TRUE(log.wait_for(armed_line()));
    // Only the watcher's thread is left to take the signal.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    kill(getpid(), SIGUSR1);
    for (int tries = 0; interruptions == 0 && tries < 10000; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(interruptions, 1);
    EXPECT_EQ(log.lines(), lines_t{armed_line()});
    fs::remove_all(bundle);
    EXPECT_TRUE(log.wait_for(stopped_line));
    EXPECT_TRUE(log.has(changed_line));
}

TEST_F(uninstall_watcher, trigger_goes_to_the_system_folder_or_else_to_the_users) {
    const std::string user_line = "I Wrote uninstall trigger (user): " + user_trigger().string();
    const std::string no_folder_line =
        "E Failed to create user support dir for trigger: " + user_folder().string();
    const auto system_failure = [&](int error) {
        return "E Cannot write system trigger (" + system_trigger().string() +
               "), errno=" + std::to_string(error) + " — will try user dir";
    };
    const auto user_failure = [&](int error) {
        return "E Failed to create trigger at " + user_trigger().string() +
               " (errno=" + std::to_string(error) + ")";
    };
    const auto put_pipes = [&](bool others_there) {
        home.put_pipe(system_trigger(), others_there);
        home.put_pipe(user_trigger(), others_there);
    };
    const auto leftover = [](const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << std::string(100, 'x');
    };
    const struct {
        const char* name;
        std::function<void()> arrange;
        lines_t lines;
        fs::path written;  // empty: none
    } cases[] = {
        {"trigger of an earlier time",
         [&] { leftover(system_trigger()); },
         {"I Wrote uninstall trigger (system): " + system_trigger().string()},
         system_trigger()},
        {"plain file for a system folder",
         [&] { leftover(system), leftover(user_trigger()); },
         {user_line},
         user_trigger()},
        {"system folder that cannot be written to, no user folder yet",
         [&] {
             fs::create_directories(system_trigger());
             fs::create_directories(user_folder().parent_path());
         },
         {system_failure(EISDIR), user_line},
         user_trigger()},
        {"no folder of the user's at all", [] {}, {no_folder_line}, {}},
        {"pipes", [&] { put_pipes(false); }, {system_failure(ENXIO), user_failure(ENXIO)}, {}},
        {"pipes with a reader",
         [&] { put_pipes(true); },
         {system_failure(ENOTSUP), user_failure(ENOTSUP)},
         {}},
    };
    for (const auto& [name, arrange, lines, written] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(system);
        fs::remove_all(user);
        log.forget();
        arrange();
        request_uninstall(system.string(), user.string());
        EXPECT_EQ(log.lines(), lines);
        for (const auto& trigger : {system_trigger(), user_trigger()}) {
            if (trigger == written) {
                EXPECT_EQ(temporary_home_t::content_of(trigger), trigger_content);
            } else {
                EXPECT_FALSE(fs::is_regular_file(trigger)) << trigger;
            }
        }
    }
}
