#include <sys/event.h>
#include <sys/mount.h>

#include "support/desktop.h"
#include "support/test.h"

namespace {

namespace fs = std::filesystem;
// The flags of each event, and what it tells.
using told_t = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

constexpr std::uint32_t all = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;
constexpr std::uint32_t usual = EV_ADD | EV_CLEAR, last = usual | EV_EOF | EV_ONESHOT;

TEST(kernel_queue, tells_once_what_was_asked_for_and_wakes_when_it_is_closed) {
    const temporary_home_t home;
    const fs::path folder = home.path(), parent = folder / "parent", bundle = parent / "bundle";
    const fs::path other = folder / "other", parent2 = folder / "parent2";
    const auto expect = [&](const told_t& wanted, std::uint32_t asked,
                            const std::function<void()>& happens) {
        fs::create_directories(bundle);
        const int queue = kqueue(), directory = ::open(bundle.c_str(), O_EVTONLY);
        const auto add = [&] {
            const struct kevent change = {
                static_cast<std::uintptr_t>(directory), EVFILT_VNODE, usual, asked, 0, nullptr};
            return kevent(queue, &change, 1, nullptr, 0, nullptr) == 0 ? 0 : errno;
        };
        EXPECT_EQ(add(), 0);
        std::atomic<std::size_t> count = 0;
        auto told = std::async(std::launch::async, [&] {
            told_t events;
            for (struct kevent event{}; kevent(queue, nullptr, 0, &event, 1, nullptr) == 1;) {
                events.emplace_back(event.flags, event.fflags);
                ++count;
            }
            return std::pair(events, errno);
        });
        happens();
        EXPECT_TRUE(wait_until([&] { return count == wanted.size(); }));
        EXPECT_EQ(told.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        EXPECT_TRUE((wanted != told_t{{last, 0}}) || add() == ENOENT);
        ::close(queue);
        EXPECT_EQ(told.get(), std::pair(wanted, EBADF));
        ::close(directory);
        EXPECT_EQ(simulator::kernel_queues_open(), 0U);
    };
    expect({{usual, NOTE_RENAME}}, NOTE_RENAME, [&] {
        fs::rename(bundle, other);
        fs::remove(other);
    });
    fs::create_directory(other);
    expect({{usual, NOTE_DELETE}}, all, [&] { fs::rename(other, bundle); });
    expect({{usual, NOTE_DELETE | NOTE_LINK}}, all, [&] {
        fs::create_directory(bundle / "inside");
        fs::remove(bundle / "inside");
        fs::rename(parent, parent2);
        fs::create_directory(parent2 / "sibling");
        fs::remove(parent2 / "sibling");
        fs::remove(parent2 / "bundle");
    });
    if (::mount("none", folder.c_str(), "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "this user may not mount";
    }
    expect({{last, 0}}, NOTE_DELETE, [&] { EXPECT_EQ(::umount2(folder.c_str(), MNT_DETACH), 0); });
}

}  // namespace
