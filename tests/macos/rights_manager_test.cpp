#include "macos/rights_manager.h"

#include <sys/file.h>

#include "common/regular_file.h"
#include "support/desktop.h"
#include "support/log_capture.h"
#include "support/test.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using simulator::permission_e;

namespace {

std::function<int()> g_disk;  // gives the error with which the disk answers an fsync

const json default_rights = {{"accessibility", false}, {"input_monitoring", false}};

std::string file_with(bool accessibility, bool input_monitoring) {
    return json{{"accessibility", accessibility}, {"input_monitoring", input_monitoring}}.dump(4);
}

// Opens a file or folder once more and locks it there, as another program does.
int locked(const std::string& path, int kind) {
    const int file = open(path.c_str(), O_RDONLY);
    EXPECT_EQ(flock(file, kind), 0);
    return file;
}

bool is_locked(const std::string& path) {
    const descriptor_t file(open(path.c_str(), O_RDONLY));
    return flock(file.get(), LOCK_SH | LOCK_NB) != 0;
}

// Lifts such a lock after that time, right after a last deed.
std::future<void> unlock(int file, auto after, const std::function<void()>& last) {
    return std::async(std::launch::async, [=] {
        std::this_thread::sleep_for(after);
        last();
        close(file);
    });
}

// A guard looks all the time with this period.
constexpr std::chrono::seconds at_once{0};

// The time for some hundred looks of a guard that should be idle.
constexpr auto idle = 30ms;

// What guards call back.
std::atomic<int> g_losses{0};
const auto count_loss = [] { ++g_losses; };

struct rights_file : testing::Test {
    rights_file() { umask(0); }
    void put(const std::string& text) const { std::ofstream(path) << text; }

    temporary_home_t home;
    const std::string path = (home.path() / "rights.json").string();
    const std::string temporary = path + ".tmp";
    const std::string failed = "E Failed to write rights status to " + path;
    log_capture_t log;
};

}  // namespace

// Stands in for the C library's.
extern "C" int fsync(int) {
    errno = g_disk ? g_disk() : 0;
    return errno == 0 ? 0 : -1;
}

TEST_F(rights_file, is_written_though_others_lock_its_folder_for_less_than_five_seconds) {
    std::ofstream(temporary) << std::string(100, 'x');  // left by a writer that was killed
    const descriptor_t for_ever(locked(temporary, LOCK_EX));
    const auto other = unlock(locked(home.path(), LOCK_EX), 4000ms, [] {});
    write_rights_to_file(true, false, path);
    EXPECT_EQ(home.content_of(path), file_with(true, false));
}

TEST_F(rights_file, is_whole_and_on_the_disk_before_it_takes_the_old_ones_place_under_two_locks) {
    const std::string written = "I Rights status written to " + path;
    log.hold(written, [&] {
        EXPECT_TRUE(is_locked(home.path()));
        return true;
    });
    for (const int answer : {0, EINTR, EINVAL, ENOTSUP}) {
        put("old");
        log.forget();
        int asked = 0;
        g_disk = [&] {
            EXPECT_TRUE(is_locked(temporary));
            EXPECT_EQ(home.content_of(temporary), file_with(true, false));
            EXPECT_EQ(home.content_of(path), "old");
            return asked++ == 0 ? answer : 0;
        };
        write_rights_to_file(true, false, path);
        EXPECT_EQ(asked, answer == EINTR ? 2 : 1);
        EXPECT_EQ(home.content_of(path), file_with(true, false));
        EXPECT_EQ(fs::status(path).permissions(), static_cast<fs::perms>(0644));
        EXPECT_EQ(log.lines(), lines_t{written});
    }
}

TEST_F(rights_file, reader_waits_half_a_second_for_a_writer_and_not_at_all_for_a_reader) {
    for (const auto& [kind, after, seen] :
         {std::tuple(LOCK_EX, 250ms, 2), {LOCK_SH, 250ms, 1}, {LOCK_EX, 1200ms, 1}}) {
        put("1");
        const auto other = unlock(locked(path, kind), after, [&] { put("2"); });
        EXPECT_EQ(read_rights_from_file(path), seen);
    }
}

TEST_F(rights_file, what_another_hand_put_there_is_read_as_far_as_it_goes) {
    EXPECT_EQ(read_rights_from_file(path), default_rights);
    home.put_pipe(path, true);
    EXPECT_EQ(read_rights_from_file(path), default_rights);
    fs::remove(path);
    EXPECT_EQ(log.lines(), lines_t{});

    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + "1" + std::string(levels, ']');
    };
    const std::tuple<std::string, json, std::size_t> cases[] = {
        {R"({"accessibility": true, "x": fal)", {{"accessibility", true}, {"x", nullptr}}, 1},
        {R"({"accessibility": true} {})", {{"accessibility", true}}, 1},
        {"[1, 1e999]", json::array({1}), 1},
        {nested(64), json::parse(nested(64)), 0},
        {nested(65), default_rights, 1},
        {"1" + std::string(1'048'575, ' '), 1, 0},
        {"1" + std::string(1'048'576, ' '), default_rights, 1},
    };
    for (const auto& [text, rights, logged] : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        log.forget();
        put(text);
        EXPECT_EQ(read_rights_from_file(path), rights);
        EXPECT_EQ(log.lines().size(), logged);
        EXPECT_EQ(log.count_beginning("E Failed to read rights status from " + path), logged);
    }
}

TEST_F(rights_file, failure_on_the_way_leaves_the_old_file_and_no_temporary_one) {
    fs::current_path(home.path());
    const auto fails = [&](const std::string& where, const std::string& line) {
        log.forget();
        write_rights_to_file(true, true, where);
        EXPECT_TRUE(log.lines().size() == 1 && log.count_beginning(line) == 1) << line;
        EXPECT_TRUE(fs::is_directory(path) || home.content_of(path) == "old");
        EXPECT_FALSE(fs::is_regular_file(temporary) || fs::exists(".tmp"));
    };
    put("old");
    fails("", "E Cannot open temp file .tmp");  // there is no home folder
    home.put_pipe(temporary, true);
    fails(path, "E Cannot open temp file " + temporary);
    fs::remove(temporary);
    g_disk = [] { return EIO; };
    fails(path, failed + ": fsync");
    g_disk = nullptr;
    fs::remove(path);
    fs::create_directories(path + "/x");
    fails(path, failed + ": ");
    EXPECT_EQ(read_rights_from_file(path), default_rights);
}

TEST_F(rights_file, readers_see_whole_files_while_two_write) {
    utils::set_all_log_level(spdlog::level::off);
    write_rights_to_file(true, false, path);
    std::atomic<bool> ended{false};
    const auto write = [&] {
        for (bool accessibility = false; !ended; accessibility = !accessibility) {
            write_rights_to_file(accessibility, !accessibility, path);
        }
    };
    const auto one = std::async(std::launch::async, write);
    const auto other = std::async(std::launch::async, write);
    std::set<std::string> seen;
    for (int i = 0; i < 10'000; ++i) {
        seen.insert(home.content_of(path));
        EXPECT_EQ(read_rights_from_file(path).size(), 2U);
    }
    ended = true;
    EXPECT_EQ(seen, (std::set{file_with(true, false), file_with(false, true)}));
}

TEST(permission_checks, a_check_that_cannot_be_made_is_a_missing_permission) {
    simulator::revoke(permission_e::input_monitoring);
    EXPECT_TRUE(check_input_monitoring()) << "nothing to open";
    simulator::connect({.name = "keyboard", .pointer = {{1, 6}}});
    EXPECT_FALSE(check_input_monitoring());
    simulator::grant(permission_e::input_monitoring);
    EXPECT_TRUE(check_input_monitoring());
    simulator::fail_next("CFArrayCreate");
    EXPECT_FALSE(check_input_monitoring());
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(!check_accessibility() && check_input_monitoring());
    EXPECT_EQ(simulator::objects_alive(), lines_t{});
}

TEST(permission_guard, the_first_loss_calls_back_once_and_ends_the_watch) {
    simulator::revoke(permission_e::accessibility);
    permission_guard_t guard(at_once, count_loss);
    permission_guard_t mute(at_once, nullptr);
    std::this_thread::sleep_for(idle);
    EXPECT_EQ(g_losses, 0) << "a permission that is missing at first is no loss";
    simulator::grant(permission_e::accessibility);
    ASSERT_TRUE(wait_until([&] { return guard.last_state() && mute.last_state(); }));

    simulator::revoke(permission_e::accessibility);
    ASSERT_TRUE(wait_until([] { return g_losses == 1; }));
    simulator::grant(permission_e::accessibility);
    std::this_thread::sleep_for(idle);
    EXPECT_FALSE(guard.last_state()) << "nobody looks any more";
    guard.poke_now();
    simulator::revoke(permission_e::accessibility);
    std::this_thread::sleep_for(idle);
    EXPECT_EQ(g_losses, 1);
    guard.poke_now();
    guard.poke_now();
    mute.poke_now();
    EXPECT_EQ(g_losses, 2);
}

TEST(permission_guard, looks_once_in_a_period) {
    const auto start = std::chrono::steady_clock::now();
    const permission_guard_t guard(1s, count_loss);
    simulator::revoke(permission_e::accessibility);
    EXPECT_TRUE(guard.last_state());
    EXPECT_TRUE(wait_until([] { return g_losses == 1; }, 1900ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
}

TEST(permission_guard, moved_guard_goes_on_watching_for_its_new_object) {
    auto from = std::make_unique<permission_guard_t>(at_once, count_loss);
    permission_guard_t to(std::move(*from));
    auto& same = to;
    to = std::move(same);
    from->poke_now();
    EXPECT_TRUE(to.last_state());
    simulator::revoke(permission_e::accessibility);
    from->poke_now();
    from.reset();
    ASSERT_TRUE(wait_until([] { return g_losses == 1; }));

    // A guard that has been emptied has no thread to hand on.
    simulator::grant(permission_e::accessibility);
    permission_guard_t empty(std::move(to));
    permission_guard_t emptier(std::move(to));
    emptier.poke_now();
    EXPECT_TRUE(emptier.last_state());

    // One that is assigned to calls its new callback, but its new thread ends at once.
    std::atomic<int> taken{0};
    permission_guard_t guard(at_once, [&] { taken = 100; });
    guard = permission_guard_t(at_once, [&] { ++taken; });
    simulator::revoke(permission_e::accessibility);
    std::this_thread::sleep_for(idle);
    EXPECT_TRUE(guard.last_state());
    guard.poke_now();
    EXPECT_EQ(taken, 1);
}
