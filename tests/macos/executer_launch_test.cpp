#include "macos/executer_launch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/launches.h"
#include "control/objects.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace {

using lines_t = std::vector<std::string>;

// Every action leaves nothing owned and says nothing.
class executer_launch_test : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(log.lines(), lines_t{});
    }

    // Puts a command of the test's own first on the PATH. It records its arguments byte for byte,
    // each with a NUL byte, which no argument can hold, and takes its time over a file named slow.
    void provide(const std::string& command) const {
        const auto file = home.path() / command;
        std::ofstream(file) << "#!/bin/sh\n"
                               "[ \"$1\" != slow ] || sleep 1\n"
                               "for one; do printf '%s\\0' \"$one\"; done >\"$0.part\"\n"
                               "mv \"$0.part\" \"$0.record\"\n";
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        setenv("PATH", (home.path().string() + ":" + usual_path).c_str(), 1);
    }

    // What the command was called with, once it has been within the time; forgets it.
    lines_t take(const std::string& command, std::chrono::seconds at_most = {}) const {
        const auto record = home.path() / (command + ".record");
        const auto end = std::chrono::steady_clock::now() + at_most;
        while (!std::filesystem::exists(record) && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::ifstream stream(record, std::ios::binary);
        lines_t arguments;
        for (std::string argument; std::getline(stream, argument, '\0');) {
            arguments.push_back(argument);
        }
        std::filesystem::remove(record);
        return arguments;
    }

    log_capture_t log;
    temporary_home_t home;
    const std::string usual_path = std::getenv("PATH");
};

TEST_F(executer_launch_test, a_path_reaches_open_as_the_shell_reads_it) {
    provide("open");
    setenv("QLX_TEST_FOLDER", "/Users/x", 1);
    for (const auto& [path, argument] : {
             std::pair("/Users/x/My File.txt", "/Users/x/My File.txt"),
             {"", ""},
             {"/Users/x/it's; & | * \xC3\xBC", "/Users/x/it's; & | * \xC3\xBC"},
             {"$QLX_TEST_FOLDER/notes.txt", "/Users/x/notes.txt"},
             {"/Users/`echo x`/notes.txt", "/Users/x/notes.txt"},
         }) {
        open_file(path);
        EXPECT_EQ(take("open", std::chrono::seconds(10)), lines_t{argument});
    }
    open_file("a\"b");  // no shell takes it
    open_file(std::string("half\0 of it", 11));
    open_file("slow");
    EXPECT_EQ(take("open"), lines_t{}) << "nobody waits for a file to open";
    EXPECT_EQ(take("open", std::chrono::seconds(10)), lines_t{"slow"});
}

TEST_F(executer_launch_test,
       desktops_are_switched_when_the_call_returns_and_missing_commands_pass) {
    setenv("PATH", home.path().c_str(), 1);
    open_file("/Users/x/notes.txt");
    switch_desktop_left();
    provide("osascript");
    switch_desktop_right();
    EXPECT_EQ(
        take("osascript"),
        (lines_t{"-e", "tell application \"System Events\" to key code 124 using control down"}));
}

TEST_F(executer_launch_test, a_program_that_cannot_be_opened_leaves_nothing_behind) {
    const std::string mail = "/Applications/Mail.app";
    const struct {
        std::string path;
        std::string failing_call;
    } cases[] = {
        {mail, "CFStringCreateWithBytes"},
        {mail, "CFURLCreateWithFileSystemPath"},
        {mail, "LSOpenCFURLRef"},
        {"/Applications/Refused.app", "none"},
        {"/Applications/\xFF.app", "none"},
        {std::string("/Applications\0/Mail.app", 23), "none"},
        {"", "none"},
    };
    simulator::refuse_launch("/Applications/Refused.app");
    lines_t opened;
    for (const auto& [path, failing_call] : cases) {
        SCOPED_TRACE(testing::Message() << path << " " << failing_call);
        simulator::fail_next(failing_call);
        open_standard_path_program(path);
        EXPECT_EQ(simulator::launches(), opened);
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        open_standard_path_program("/Applications/My \xC3\x9C.app");
        opened.emplace_back("/Applications/My \xC3\x9C.app");
        EXPECT_EQ(simulator::launches(), opened);
    }
}

}  // namespace
