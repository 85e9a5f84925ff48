#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "macos/query_manager.h"
#include "macos/rights_manager.h"
#include "macos/run_daemon.h"

namespace {

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
    if (arguments.size() == 1) {
        return queries.run(arguments[0], {});
    }
    if (arguments[0] == "--request") {
        return queries.run(arguments[1], {arguments.begin() + 2, arguments.end()});
    }
    // The daemon runs all the same: a launcher whose command line went wrong still gets the mouse
    // to work, and the complaint stands on its standard error. Flushed, since the daemon stays.
    std::cerr << "Error: incorrect syntax\n\n";
    queries.print_usage(std::cout, program);
    std::cout << std::flush;
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
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
