#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "macos/query_manager.h"
#include "macos/rights_manager.h"
#include "macos/run_daemon.h"

namespace {

// A process may be started without the descriptors 0 to 2, and then the first files that it opens
// get these numbers: what is meant for standard error would go into the log or the rights file. So
// the numbers are taken here, the wrong way round: reading from them and writing to them still
// fails.
void occupy_standard_streams() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(number, F_GETFD) < 0) {
            static_cast<void>(open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

// The code, unless the answer on standard output has not got out.
int code_of_answer(int code) {
    if (!std::cout.flush() && code == 0) {
        std::cerr << "Error: the answer cannot be written\n";
        return 1;
    }
    return code;
}

// The exit code of the query that the command line asks for; none when the daemon is to run.
std::optional<int> run_query(const std::string& program,
                             const std::vector<std::string>& arguments) {
    query_manager_t queries(program);
    queries.add(
        "check-rights",
        [](const std::vector<std::string>&) {
            return print_answer(read_rights_from_file(), "read_rights_from_file()");
        },
        "Displays macOS rights status (JSON)");

    if (arguments.empty()) {
        return std::nullopt;
    }
    // Whoever asked may have gone without waiting for the answer.
    const auto usual = std::signal(SIGPIPE, SIG_IGN);
    if (arguments.size() == 1) {
        return code_of_answer(queries.run(arguments[0], {}));
    }
    if (arguments[0] == "--request") {
        return code_of_answer(queries.run(arguments[1], {arguments.begin() + 2, arguments.end()}));
    }
    // The daemon runs all the same: a launcher whose command line went wrong still gets the mouse
    // to work, and the complaint stands on its standard error. Flushed, since the daemon stays.
    std::cerr << "Error: incorrect syntax\n\n";
    queries.print_usage(std::cout, program);
    std::cout << std::flush;
    std::signal(SIGPIPE, usual);
    return std::nullopt;
}

// What nothing can go on after, as memory refused to a destructor, ends the program by its exit
// code and not by a crash: a launcher starts the daemon again, and the system takes its event taps
// away.
[[noreturn]] void end_at_once() noexcept {
    std::fputs("Error: no way to go on\n", stderr);
    std::_Exit(1);
}

}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(end_at_once);
    occupy_standard_streams();
    try {
        const std::string program = argc > 0 ? argv[0] : "";
        const std::vector<std::string> arguments(argc > 0 ? argv + 1 : argv, argv + argc);
        const auto answer = run_query(program, arguments);
        return answer ? *answer : run_daemon();
    } catch (const std::exception& error) {
        std::cerr << "Error: " << error.what() << "\n";
        return 1;
    }
}
