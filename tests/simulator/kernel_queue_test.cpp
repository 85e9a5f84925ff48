#include <gtest/gtest.h>

#include <fcntl.h>
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

#include "control/kernel_queue.h"
#include "control/objects.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

int add_watch(int queue, int directory, std::uint32_t what) {
    const struct kevent change {
        static_cast<std::uintptr_t>(directory), EVFILT_VNODE, EV_ADD | EV_CLEAR, what, 0, nullptr
    };
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
        ASSERT_GE(queue, 0);
        char byte = 0;
        ASSERT_TRUE(::read(directory, &byte, 1) == -1 && errno == EISDIR);  // as of any folder
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
        {"removed", [&] { fs::remove(bundle); }, NOTE_DELETE | NOTE_LINK},
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
         NOTE_DELETE | NOTE_LINK},
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
        EXPECT_EQ(answer.event.flags, EV_ADD | EV_CLEAR);
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

TEST_F(kernel_queue, unmounting_revokes_the_directory_for_good_asked_for_or_not) {
    const fs::path volume = folder / "elsewhere";
    for (const std::uint32_t asked : {NOTE_REVOKE, NOTE_DELETE}) {
        if (::mount("none", volume.c_str(), "tmpfs", 0, nullptr) != 0) {
            GTEST_SKIP() << "this user may not mount";
        }
        ::close(directory);
        fs::create_directory(volume / "bundle");
        directory = ::open((volume / "bundle").c_str(), O_EVTONLY);
        arm(asked);
        auto waiting = wait_elsewhere();
        EXPECT_EQ(::umount2(volume.c_str(), MNT_DETACH), 0);
        const answer_t answer = waiting.get();
        EXPECT_EQ(answer.event.fflags, asked & NOTE_REVOKE);
        EXPECT_EQ(answer.event.flags, EV_ADD | EV_CLEAR | EV_EOF | EV_ONESHOT);
        EXPECT_EQ(add_watch(queue, directory, asked), -1);
        EXPECT_EQ(errno, ENOENT);
    }
}

}  // namespace
