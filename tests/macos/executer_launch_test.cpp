#include "macos/executer_launch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "control/launches.h"
#include "control/objects.h"
#include "support/command_recorder.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace {

using arguments_t = command_recorder_t::arguments_t;
using lines_t = std::vector<std::string>;

// Every action leaves nothing owned and says nothing.
class executer_launch_test : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(log.lines(), lines_t{});
    }

    std::filesystem::path commands() {
        auto folder = home.path() / "bin";
        std::filesystem::create_directories(folder);
        return folder;
    }

    log_capture_t log;
    temporary_home_t home;
};

TEST_F(executer_launch_test, desktops_are_switched_by_the_scripting_host_before_the_call_returns) {
    command_recorder_t osascript(commands(), "osascript");
    switch_desktop_left();
    EXPECT_EQ(osascript.take(),
              (arguments_t{
                  "-e", "tell application \"System Events\" to key code 123 using control down"}));
    switch_desktop_right();
    EXPECT_EQ(osascript.take(),
              (arguments_t{
                  "-e", "tell application \"System Events\" to key code 124 using control down"}));
}

TEST_F(executer_launch_test, a_path_reaches_open_as_the_shell_reads_it) {
    command_recorder_t open(commands(), "open");
    setenv("QLX_TEST_FOLDER", "/Users/x", 1);
    const struct {
        std::string path;
        std::string argument;
    } cases[] = {
        {"/Users/x/notes.txt", "/Users/x/notes.txt"},
        {"/Users/x/My File.txt", "/Users/x/My File.txt"},
        {"", ""},
        {"/Users/x/it's; & | * done", "/Users/x/it's; & | * done"},
        {"/Users/x/\xC3\xBC.txt", "/Users/x/\xC3\xBC.txt"},
        {"$QLX_TEST_FOLDER/notes.txt", "/Users/x/notes.txt"},
        {"/Users/`echo x`/notes.txt", "/Users/x/notes.txt"},
    };
    for (const auto& [path, argument] : cases) {
        SCOPED_TRACE(path);
        open_file(path);
        EXPECT_EQ(open.wait(), (arguments_t{argument}));
    }
}

TEST_F(executer_launch_test, nobody_waits_for_a_file_to_open) {
    command_recorder_t open(commands(), "open");
    open.hold();
    open_file("/Users/x/large");
    EXPECT_EQ(open.take(), std::nullopt);
    open.let_go();
    EXPECT_EQ(open.wait(), (arguments_t{"/Users/x/large"}));
}

TEST_F(executer_launch_test, a_path_that_no_shell_takes_opens_nothing_and_the_next_one_opens) {
    command_recorder_t open(commands(), "open");
    for (const auto& path : {std::string("a\"b"), std::string("half\0 of it", 11)}) {
        open_file(path);
        open_file("/Users/x/next");
        EXPECT_EQ(open.wait(), (arguments_t{"/Users/x/next"}));
    }
}

TEST_F(executer_launch_test, missing_commands_pass_unnoticed) {
    setenv("PATH", commands().c_str(), 1);
    open_file("/Users/x/notes.txt");
    switch_desktop_left();
    switch_desktop_right();
}

TEST_F(executer_launch_test, a_program_opens_by_its_path) {
    open_standard_path_program("/Applications/My Mail.app");
    open_standard_path_program("/Applications/\xC3\x9C.app");
    EXPECT_EQ(simulator::launches(),
              (lines_t{"/Applications/My Mail.app", "/Applications/\xC3\x9C.app"}));
}

TEST_F(executer_launch_test, a_program_that_cannot_be_opened_leaves_nothing_behind) {
    const struct {
        std::string path;
        std::string failing_call;
    } cases[] = {
        {"/Applications/Mail.app", "CFStringCreateWithBytes"},
        {"/Applications/Mail.app", "CFURLCreateWithFileSystemPath"},
        {"/Applications/Mail.app", "LSOpenCFURLRef"},
        {"/Applications/Refused.app", ""},
        {"/Applications/\xFF.app", ""},
        {std::string("/Applications\0/Mail.app", 23), ""},
        {"", ""},
    };
    simulator::refuse_launch("/Applications/Refused.app");
    lines_t opened;
    for (const auto& [path, failing_call] : cases) {
        SCOPED_TRACE(testing::Message() << path << " " << failing_call);
        if (!failing_call.empty()) {
            simulator::fail_next(failing_call);
        }
        open_standard_path_program(path);
        EXPECT_EQ(simulator::launches(), opened);
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        open_standard_path_program("/Applications/Next.app");
        opened.emplace_back("/Applications/Next.app");
        EXPECT_EQ(simulator::launches(), opened);
    }
}

}  // namespace
