#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/event.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "control/kernel_queue.h"
#include "control/objects.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

int add_watch(int queue, int directory, std::uint32_t what) {
    struct kevent change {};
    EV_SET(&change, static_cast<std::uintptr_t>(directory), EVFILT_VNODE, EV_ADD | EV_CLEAR, what,
           0, nullptr);
    return kevent(queue, &change, 1, nullptr, 0, nullptr);
}

struct answer_t {
    int result = 0;
    int error = 0;
    struct kevent event {};
};

answer_t wait_on(int queue) {
    answer_t answer;
    answer.result = kevent(queue, nullptr, 0, &answer.event, 1, nullptr);
    answer.error = errno;
    return answer;
}

class kernel_queue : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "kernel_queue.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder = pattern;
        bundle = folder / "parent" / "bundle";
        fs::create_directories(bundle);
        fs::create_directories(folder / "elsewhere");
        directory = ::open(bundle.c_str(), O_EVTONLY);
        queue = kqueue();
        ASSERT_GE(directory, 0);
        ASSERT_GE(queue, 0);
    }

    void TearDown() override {
        ::close(queue);
        ::close(directory);
        fs::remove_all(folder);
        EXPECT_EQ(simulator::kernel_queues_open(), 0U);
    }

    void arm(std::uint32_t what = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE) {
        ASSERT_EQ(add_watch(queue, directory, what), 0) << errno;
    }

    std::future<answer_t> wait_elsewhere() {
        return std::async(std::launch::async, [number = queue] { return wait_on(number); });
    }

    fs::path folder;
    fs::path bundle;
    int directory = -1;
    int queue = -1;
};

TEST_F(kernel_queue, tells_what_happened_to_the_directory_and_to_nothing_else) {
    struct case_t {
        const char* name;
        std::function<void()> happens;
        std::uint32_t told;
    };
    const fs::path other = folder / "other";
    const case_t cases[] = {
        {"removed", [&] { fs::remove(bundle); }, NOTE_DELETE},
        {"renamed", [&] { fs::rename(bundle, bundle.string() + "2"); }, NOTE_RENAME},
        {"moved", [&] { fs::rename(bundle, folder / "elsewhere" / "bundle"); }, NOTE_RENAME},
        {"replaced", [&] { fs::rename(other, bundle); }, NOTE_DELETE},
        {"moved, then removed there",
         [&] {
             fs::rename(bundle, folder / "elsewhere" / "bundle");
             fs::remove(folder / "elsewhere" / "bundle");
         },
         NOTE_RENAME | NOTE_DELETE},
        {"its surroundings renamed and busy, then removed",
         [&] {
             fs::create_directory(bundle / "inside");
             fs::remove(bundle / "inside");
             fs::rename(folder / "parent", folder / "parent2");
             fs::create_directory(folder / "parent2" / "sibling");
             fs::rename(folder / "parent2" / "sibling", folder / "parent2" / "sibling2");
             fs::remove(folder / "parent2" / "sibling2");
             fs::remove(folder / "parent2" / "bundle");
         },
         NOTE_DELETE},
    };
    for (const case_t& one : cases) {
        SCOPED_TRACE(one.name);
        fs::create_directories(other);
        arm();
        auto waiting = wait_elsewhere();
        one.happens();
        std::uint32_t told = 0;
        while (told != one.told) {
            ASSERT_EQ(waiting.wait_for(10s), std::future_status::ready);
            const answer_t answer = waiting.get();
            ASSERT_EQ(answer.result, 1);
            EXPECT_EQ(answer.event.ident, static_cast<std::uintptr_t>(directory));
            EXPECT_EQ(answer.event.filter, EVFILT_VNODE);
            told |= answer.event.fflags;
            ASSERT_EQ(told & ~one.told, 0U);
            if (told != one.told) {
                waiting = wait_elsewhere();
            }
        }
        TearDown();
        SetUp();
    }
}

TEST_F(kernel_queue, tells_nothing_unasked_nothing_twice_and_nothing_of_a_closed_directory) {
    for (const bool closed : {false, true}) {
        SCOPED_TRACE(closed);
        arm(closed ? NOTE_DELETE : NOTE_RENAME);
        if (closed) {
            ::close(directory);
        } else {
            fs::rename(bundle, folder / "moved");
            EXPECT_EQ(wait_on(queue).event.fflags, NOTE_RENAME);
        }
        fs::remove(closed ? bundle : folder / "moved");
        auto waiting = wait_elsewhere();
        EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
        ::close(queue);
        EXPECT_EQ(waiting.get().error, EBADF);
        TearDown();
        SetUp();
    }
}

TEST_F(kernel_queue, closing_it_wakes_the_wait_at_once_and_leaves_nothing) {
    arm();
    auto waiting = wait_elsewhere();
    std::this_thread::sleep_for(50ms);
    const auto closed_at = std::chrono::steady_clock::now();
    ::close(queue);
    const answer_t answer = waiting.get();
    EXPECT_LT(std::chrono::steady_clock::now() - closed_at, 1s);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, EBADF);
    EXPECT_EQ(wait_on(queue).error, EBADF);
}

TEST_F(kernel_queue, a_signal_interrupts_the_wait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    arm();
    answer_t answer;
    std::atomic<bool> ended = false;
    std::thread waiting([&] {
        answer = wait_on(queue);
        ended = true;
    });
    while (!ended) {  // a signal before the wait does not count
        pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    waiting.join();
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, EINTR);
}

TEST_F(kernel_queue, numbers_that_are_closed_or_stand_for_something_else_are_refused) {
    const int spare = ::dup(directory);
    ::close(spare);
    EXPECT_EQ(add_watch(queue, spare, NOTE_DELETE), -1);
    EXPECT_EQ(errno, EBADF);
    ::close(queue);
    ASSERT_EQ(::dup2(directory, queue), queue);
    EXPECT_EQ(add_watch(queue, directory, NOTE_DELETE), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(kernel_queue, what_is_not_modelled_ends_the_program) {
    struct kevent event {};
    const timespec no_time{};
    EXPECT_DEATH(kevent(queue, nullptr, 0, &event, 1, &no_time), "kevent: not modelled");
    EXPECT_DEATH(add_watch(queue, directory, 2), "kevent: not modelled");
    EXPECT_DEATH(
        {
            add_watch(queue, directory, NOTE_DELETE);
            add_watch(queue, ::open("/", O_EVTONLY), NOTE_DELETE);
        },
        "kevent: not modelled: a second watch");
}

TEST_F(kernel_queue, unmounting_revokes_the_directory) {
    const fs::path volume = folder / "elsewhere";
    if (::mount("none", volume.c_str(), "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "this user may not mount";
    }
    ::close(directory);
    fs::create_directory(volume / "bundle");
    directory = ::open((volume / "bundle").c_str(), O_EVTONLY);
    arm();
    auto waiting = wait_elsewhere();
    EXPECT_EQ(::umount2(volume.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(waiting.get().event.fflags, NOTE_REVOKE);
}

}  // namespace
