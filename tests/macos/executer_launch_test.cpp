#include "macos/executer_launch.h"

#include "macos/executer_fixture.h"
#include "support/test.h"

namespace {

class executer_launch_test : public executer_test {
  protected:
    // Puts a command of the test's own first on the PATH. It takes its time and records its
    // arguments, each in brackets. A pipe beside it holds it until somebody writes there.
    void provide(const std::string& command) const {
        std::ofstream(home.path() / command)
            << "#!/bin/sh\n[ ! -p $0.go ] || cat $0.go\nsleep 0.05\n"
               "printf '[%s]' \"$@\" >$0.part\n"
               "mv $0.part $0.record\n";
        std::filesystem::permissions(home.path() / command, std::filesystem::perms::owner_all);
        setenv("PATH", (home.path().string() + ":" + usual_path).c_str(), 1);
    }

    void open(const std::string& path) {
        EXPECT_EQ(effects_of(open_file_t(nlohmann::json{{"path", path}})), lines_t{});
    }

    temporary_home_t home;
    const std::string usual_path = std::getenv("PATH");
    const std::filesystem::path opened = home.path() / "open.record";
};

TEST_F(executer_launch_test, a_path_reaches_open_as_the_shell_reads_it_and_nobody_waits_for_it) {
    provide("open");
    setenv("QLX_TEST_FOLDER", "/Users/x", 1);
    for (const auto& [path, argument] :
         {std::pair("", "[]"),
          {"/it's; & | * \xC3\xBC", "[/it's; & | * \xC3\xBC]"},
          {"$QLX_TEST_FOLDER/`echo notes`.txt", "[/Users/x/notes.txt]"}}) {
        open(path);
        EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(opened); }));
        EXPECT_EQ(home.content_of(opened), argument);
        std::filesystem::remove(opened);
    }
    open("a\"b");  // no shell takes it
    open(std::string("half\"\0 of it", 12));
    home.put_pipe(home.path() / "open.go", false);
    open("slow");
    EXPECT_FALSE(std::filesystem::exists(opened));
    std::ofstream(home.path() / "open.go") << "";
    EXPECT_TRUE(wait_until([&] { return home.content_of(opened) == "[slow]"; }));
}

TEST_F(executer_launch_test, desktops_are_switched_when_the_call_returns) {
    const auto switched = home.path() / "osascript.record";
    setenv("PATH", home.path().c_str(), 1);
    open("/Users/x/notes.txt");
    EXPECT_EQ(effects_of(move_to_left_desktop_tab_t{}), lines_t{}) << "there is no such command";
    provide("osascript");
    executer_t().process_action(move_to_right_desktop_tab_t{});
    EXPECT_EQ(home.content_of(switched),
              "[-e][tell application \"System Events\" to key code 124 using control down]");
}

}  // namespace
