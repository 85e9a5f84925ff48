#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// A command of the test's own that stands first on the PATH and records its arguments byte for
// byte. Make it before any thread.
class command_recorder_t {
  public:
    using arguments_t = std::vector<std::string>;

    // `folder` is there already and holds nothing else but recorders.
    command_recorder_t(const std::filesystem::path& folder, const std::string& name)
        : _record(folder / (name + ".record")), _gate(folder / (name + ".gate")) {
        const auto script = folder / name;
        // Each argument ends in a NUL byte, which no argument can hold. A record is complete when
        // it has its name. The gate is waited for only as long as a test may take.
        std::ofstream(script) << "#!/bin/sh\n"
                              << "tries=0\n"
                              << "while [ -e '" << _gate.string() << "' ] && [ $tries -lt 500 ]\n"
                              << "do sleep 0.02; tries=$((tries + 1)); done\n"
                              << ": >'" << _record.string() << ".part'\n"
                              << "[ $# -eq 0 ] || printf '%s\\0' \"$@\" >'" << _record.string()
                              << ".part'\n"
                              << "mv '" << _record.string() << ".part' '" << _record.string()
                              << "'\n";
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        const char* path = std::getenv("PATH");
        setenv("PATH", (folder.string() + ":" + (path == nullptr ? "" : path)).c_str(), 1);
    }

    // What the command was called with last, once it has been; forgets it.
    std::optional<arguments_t> take() {
        std::ifstream file(_record, std::ios::binary);
        if (!file) {
            return std::nullopt;
        }
        arguments_t arguments;
        for (std::string argument; std::getline(file, argument, '\0');) {
            arguments.push_back(argument);
        }
        std::filesystem::remove(_record);
        return arguments;
    }

    // The same for a command that runs in the background. Nothing when it takes longer.
    std::optional<arguments_t> wait(std::chrono::milliseconds at_most = std::chrono::seconds(10)) {
        const auto end = std::chrono::steady_clock::now() + at_most;
        while (std::chrono::steady_clock::now() < end) {
            if (auto arguments = take()) {
                return arguments;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return std::nullopt;
    }

    // Lets the command wait before it records anything, until it is let go.
    void hold() { std::ofstream(_gate) << "held"; }
    void let_go() { std::filesystem::remove(_gate); }

  private:
    std::filesystem::path _record;
    std::filesystem::path _gate;
};
