#include "macos/executer_launch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "control/launches.h"
#include "control/objects.h"
#include "support/log_capture.h"
#include "support/temporary_home.h"

namespace {

using arguments_t = std::vector<std::string>;
using lines_t = std::vector<std::string>;

// A command of the test's own that records its arguments byte for byte: each ends in a NUL byte,
// which no argument can hold.
class command_recorder_t {
  public:
    explicit command_recorder_t(const std::filesystem::path& file) : _file(file.string()) {
        // A record is complete when it has its name. The gate is waited for only as long as a test
        // may take.
        std::ofstream(_file) << R"(#!/bin/sh
tries=0
while [ -e "$0.gate" ] && [ $tries -lt 500 ]; do sleep 0.02; tries=$((tries + 1)); done
for argument; do printf '%s\0' "$argument"; done >"$0.part"
mv "$0.part" "$0.record"
)";
        std::filesystem::permissions(_file, std::filesystem::perms::owner_all);
    }

    // What the command was called with last, once it has been; forgets it.
    std::optional<arguments_t> take() {
        std::ifstream record(_file + ".record", std::ios::binary);
        if (!record) {
            return std::nullopt;
        }
        arguments_t arguments;
        for (std::string argument; std::getline(record, argument, '\0');) {
            arguments.push_back(argument);
        }
        std::filesystem::remove(_file + ".record");
        return arguments;
    }

    // The same for a command that runs in the background. Nothing when it takes longer.
    std::optional<arguments_t> wait() {
        for (int tries = 0; tries < 2000; ++tries) {
            if (auto arguments = take()) {
                return arguments;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return std::nullopt;
    }

    // Lets the command wait before it records anything, until it is let go.
    void hold() { std::ofstream(_file + ".gate") << "held"; }
    void let_go() { std::filesystem::remove(_file + ".gate"); }

  private:
    std::string _file;
};

// Every action leaves nothing owned and says nothing.
class executer_launch_test : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(simulator::objects_alive(), lines_t{});
        EXPECT_EQ(log.lines(), lines_t{});
    }

    log_capture_t log;
    temporary_home_t home;
    const std::string path = std::getenv("PATH");
};

TEST_F(executer_launch_test, a_path_reaches_open_as_the_shell_reads_it) {
    setenv("PATH", (home.path().string() + ":" + path).c_str(), 1);
    setenv("QLX_TEST_FOLDER", "/Users/x", 1);
    command_recorder_t open(home.path() / "open");
    const struct {
        std::string path;
        std::string argument;
    } cases[] = {
        {"/Users/x/My File.txt", "/Users/x/My File.txt"},
        {"", ""},
        {"/Users/x/it's; & | * \xC3\xBC", "/Users/x/it's; & | * \xC3\xBC"},
        {"$QLX_TEST_FOLDER/notes.txt", "/Users/x/notes.txt"},
        {"/Users/`echo x`/notes.txt", "/Users/x/notes.txt"},
    };
    for (const auto& [path, argument] : cases) {
        SCOPED_TRACE(path);
        open_file(path);
        EXPECT_EQ(open.wait(), (arguments_t{argument}));
    }
    for (const auto& path : {std::string("a\"b"), std::string("half\0 of it", 11)}) {
        open_file(path);  // no shell takes it
        open_file("/Users/x/next");
        EXPECT_EQ(open.wait(), (arguments_t{"/Users/x/next"}));
    }
    open.hold();
    open_file("/Users/x/large");
    EXPECT_EQ(open.take(), std::nullopt) << "nobody waits for a file to open";
    open.let_go();
    EXPECT_EQ(open.wait(), (arguments_t{"/Users/x/large"}));
}

TEST_F(executer_launch_test,
       desktops_are_switched_when_the_call_returns_and_missing_commands_pass) {
    setenv("PATH", home.path().c_str(), 1);
    open_file("/Users/x/notes.txt");
    switch_desktop_left();
    setenv("PATH", (home.path().string() + ":" + path).c_str(), 1);
    command_recorder_t osascript(home.path() / "osascript");
    switch_desktop_right();
    EXPECT_EQ(osascript.take(),
              (arguments_t{
                  "-e", "tell application \"System Events\" to key code 124 using control down"}));
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
        open_standard_path_program("/Applications/My \xC3\x9C.app");
        opened.emplace_back("/Applications/My \xC3\x9C.app");
        EXPECT_EQ(simulator::launches(), opened);
    }
}

}  // namespace
