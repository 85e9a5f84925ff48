#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/event.h>
#include <sys/mount.h>
#include <unistd.h>

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
    const fs::path other = folder / "other";
    const struct {
        const char* name;
        std::function<void()> happens;
        std::uint32_t told;
    } cases[] = {
        {"removed", [&] { fs::remove(bundle); }, NOTE_DELETE},
        {"moved", [&] { fs::rename(bundle, folder / "elsewhere" / "bundle"); }, NOTE_RENAME},
        {"replaced", [&] { fs::rename(other, bundle); }, NOTE_DELETE},
        {"its surroundings renamed and busy, then removed",
         [&] {
             fs::create_directory(bundle / "inside");
             fs::remove(bundle / "inside");
             fs::rename(folder / "parent", folder / "parent2");
             fs::create_directory(folder / "parent2" / "sibling");
             fs::remove(folder / "parent2" / "sibling");
             fs::remove(folder / "parent2" / "bundle");
         },
         NOTE_DELETE},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        fs::create_directories(other);
        arm();
        auto waiting = wait_elsewhere();
        one.happens();
        const answer_t answer = waiting.get();
        EXPECT_EQ(answer.result, 1);
        EXPECT_EQ(answer.event.fflags, one.told);
        TearDown();
        SetUp();
    }
}

TEST_F(kernel_queue, tells_nothing_twice_unasked_or_of_a_closed_directory_and_wakes_when_closed) {
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
        ASSERT_EQ(waiting.wait_for(1s), std::future_status::ready);
        const answer_t answer = waiting.get();
        EXPECT_EQ(answer.result, -1);
        EXPECT_EQ(answer.error, EBADF);
        EXPECT_EQ(wait_on(queue).error, EBADF);
        TearDown();
        SetUp();
    }
}

TEST_F(kernel_queue, a_signal_interrupts_the_wait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    arm();
    std::promise<answer_t> promise;
    auto answered = promise.get_future();
    std::thread waiting([&] { promise.set_value(wait_on(queue)); });
    do {  // a signal before the wait does not count
        pthread_kill(waiting.native_handle(), SIGUSR1);
    } while (answered.wait_for(1ms) != std::future_status::ready);
    waiting.join();
    const answer_t answer = answered.get();
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
