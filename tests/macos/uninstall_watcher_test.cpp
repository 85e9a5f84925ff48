#include "macos/uninstall_watcher.h"

#include <pthread.h>
#include <pwd.h>
#include <spdlog/fmt/fmt.h>
#include <sys/event.h>
#include <sys/resource.h>

#include "support/desktop.h"
#include "support/log_capture.h"
#include "support/test.h"

namespace fs = std::filesystem;

static passwd g_entry{};
static passwd* g_found = &g_entry;

// Stands in for the C library's, whose answer is the user's real home folder.
extern "C" passwd* getpwuid(uid_t) {
    return g_found;
}

namespace {

const std::string stopped_line = "I Uninstall watcher stopped";
const std::string content = "front_removed\n";
const std::string no_folder = "E Failed to create user support dir for trigger: ";

// With a queue opened and closed before, since the simulated desktop frees what stands behind
// closed queues when the next one is opened.
auto descriptors_open() {
    close(kqueue());
    return std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator());
}

// Folders that stand for the machine's, and what is seen of a watcher on them.
class uninstall_watcher : public testing::Test {
  protected:
    uninstall_watcher() {
        umask(0);
        fs::create_directories(bundle / "Contents");
        fs::create_directories(system);
    }

    std::unique_ptr<uninstall_watcher_t> watch() {
        return std::make_unique<uninstall_watcher_t>([this] { ++quits; }, bundle, system, user);
    }

    // Empty where there is no trigger that everyone may replace in a folder that everyone may use.
    static std::string trigger_in(const fs::path& folder) {
        const auto file = folder / ".uninstall_request";
        const bool open_to_all = fs::status(folder).permissions() == fs::perms::all &&
                                 fs::status(file).permissions() == static_cast<fs::perms>(0666);
        return open_to_all ? temporary_home_t::content_of(file) : "";
    }

    temporary_home_t home;
    const fs::path bundle = home.path() / "Front.app", system = home.path() / "system";
    const fs::path user = home.path() / "user";
    const fs::path user_folder = user / "Library" / "Application Support" / "QlxControlCenter";
    const std::string system_trigger = (system / ".uninstall_request").string();
    const std::string user_trigger = (user_folder / ".uninstall_request").string();
    const std::string armed_line = "I Uninstall watcher armed on " + bundle.string();
    const std::string system_line = "I Wrote uninstall trigger (system): " + system_trigger;
    log_capture_t log;
    std::atomic<std::size_t> quits{0};
};

}  // namespace

TEST_F(uninstall_watcher, only_the_going_of_the_bundle_ends_the_wait) {
    static std::atomic<int> interruptions{0};
    std::signal(SIGUSR1, [](int) { ++interruptions; });
    auto watcher = watch();
    ASSERT_TRUE(log.wait_for(armed_line));
    // Only the watcher's thread is left to take the signal.
    sigset_t signals;
    sigfillset(&signals);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    kill(getpid(), SIGUSR1);
    ASSERT_TRUE(wait_until([] { return interruptions == 1; }));
    std::ofstream(bundle / "Contents" / "file") << "new";  // as by an update
    fs::remove_all(bundle);
    EXPECT_TRUE(wait_until([this] { return quits == 1; }));
    watcher.reset();
    EXPECT_EQ(quits, 1U);
    EXPECT_EQ(log.lines(),
              (lines_t{armed_line, "I Front app changed (DELETE/RENAME/REVOKE) → uninstall",
                       system_line, stopped_line}));
    EXPECT_EQ(trigger_in(system), content);
    EXPECT_FALSE(fs::exists(user_folder));
}

TEST_F(uninstall_watcher, destruction_at_any_moment_of_the_setup_ends_the_thread) {
    const auto woken_line =
        fmt::format("E kevent(wait) failed (errno={}), stopping watcher", EBADF);
    watch().reset();
    const auto descriptors = descriptors_open();
    for (int i = 0; i < 300; ++i) {
        const auto armed = log.count(armed_line);
        auto watcher = watch();
        ASSERT_TRUE(i % 10 != 0 || log.wait_for(armed_line, armed + 1));
        wait_busily(std::chrono::nanoseconds(i * 700));
        watcher.reset();
        ASSERT_EQ(log.count(armed_line), quits) << "one call for each that had its watch";
    }
    EXPECT_EQ(log.count(stopped_line), quits);
    EXPECT_EQ(log.lines().size(), quits + quits + log.count(woken_line));
    EXPECT_EQ(descriptors_open(), descriptors);
    EXPECT_FALSE(fs::exists(system_trigger));
}

TEST_F(uninstall_watcher, without_a_watch_nobody_is_called_back) {
    simulator::fail_next("kqueue");
    if (const int queue = kqueue(); queue >= 0) {
        close(queue);
        GTEST_SKIP() << "the machine's own kernel queues cannot be made to fail";
    }
    const auto not_opened_line = fmt::format(
        "E open(O_EVTONLY) failed for {} (errno={}) → uninstall", bundle.string(), EMFILE);
    const auto limit_descriptors = [](rlim_t count) {
        const rlimit limit{count, 100};
        return setrlimit(RLIMIT_NOFILE, &limit) == 0;
    };
    const auto descriptors = descriptors_open();
    const auto ends_with = [&](const lines_t& lines) {
        watch().reset();
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(trigger_in(system), lines.back() == system_line ? content : "");
        EXPECT_EQ(quits, 0U);
        EXPECT_EQ(descriptors_open(), descriptors);
        log.forget();
    };
    simulator::fail_next("kqueue");
    ends_with({fmt::format("E kqueue() failed (errno={})", EMFILE)});
    simulator::fail_next("kevent");
    ends_with({fmt::format("E kevent(ADD) failed (errno={})", ENOMEM)});
    log.hold(not_opened_line, [&] { return limit_descriptors(100); });
    limit_descriptors(0);
    ends_with({not_opened_line, system_line});
    fs::remove_all(bundle);
    ends_with({"I Front not present at startup → uninstall", system_line});
}

TEST_F(uninstall_watcher, trigger_goes_to_the_system_folder_or_else_to_the_users) {
    const std::string user_line = "I Wrote uninstall trigger (user): " + user_trigger;
    const auto system_failure = [&](int error) {
        return fmt::format("E Cannot write system trigger ({}), errno={} — will try user dir",
                           system_trigger, error);
    };
    const auto user_failure =
        fmt::format("E Failed to create trigger at {} (errno={})", user_trigger, ENOTSUP);
    const auto leftover = [](const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << std::string(100, 'x');
    };
    const auto request = [&](const lines_t& lines, const fs::path& written = {}) {
        log.forget();
        request_uninstall(system, user);
        EXPECT_EQ(log.lines(), lines);
        for (const auto& folder : {system, user_folder}) {
            EXPECT_EQ(trigger_in(folder), folder == written ? content : "") << lines.front();
        }
        fs::remove_all(system);
        fs::remove_all(user);
    };
    leftover(system_trigger);
    request({system_line}, system);
    leftover(system);
    leftover(user_trigger);
    request({user_line}, user_folder);
    fs::create_directories(system_trigger);
    fs::create_directories(user_folder.parent_path());
    request({system_failure(EISDIR), user_line}, user_folder);
    fs::create_directories(user / "Library");
    request({no_folder + user_folder.string()});
    home.put_pipe(system_trigger, true);
    home.put_pipe(user_trigger, true);
    request({system_failure(ENOTSUP), user_failure});
}

TEST_F(uninstall_watcher, home_is_that_of_the_password_database_or_else_of_the_environment) {
    if (fs::exists("/Library")) {
        GTEST_SKIP() << "without a home the trigger would go to this machine's own folder";
    }
    // In folders in which nobody can make another.
    const std::tuple<passwd*, const char*, const char*, std::string> cases[] = {
        {&g_entry, "/proc/database", "/proc/environment", "/proc/database"},
        {&g_entry, "", "/proc/environment", "/proc/environment"},
        {&g_entry, nullptr, "/proc/environment", "/proc/environment"},
        {nullptr, nullptr, nullptr, ""},
    };
    for (const auto& [entry, folder, variable, found] : cases) {
        g_entry.pw_dir = const_cast<char*>(folder);
        g_found = entry;
        variable != nullptr ? setenv("HOME", variable, 1) : unsetenv("HOME");
        log.forget();
        request_uninstall(user);
        EXPECT_EQ(log.lines(),
                  lines_t{no_folder + found + "/Library/Application Support/QlxControlCenter"});
    }
}
