#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The one-shot commands of the executable: name, what to do, and what to say of it in the usage.
// Names are compared byte for byte. Any thread; a handler may itself call the manager.
class query_manager_t {
  public:
    // Gets the command's arguments and returns the exit code of the process.
    using handler_t = std::function<int(const std::vector<std::string>& arguments)>;

    struct entry_t {
        handler_t handler;        // may be empty: run() then reports the call of an empty function
        std::string description;  // may be empty
    };

    // Knows "help", "version" and "list-mice", with the aliases "ls" and "-h". The program name
    // stands in the usage that "help" prints.
    explicit query_manager_t(std::string program_name);
    query_manager_t(const query_manager_t&) = delete;
    query_manager_t& operator=(const query_manager_t&) = delete;

    // False, and the first entry stays, when there is a command of that name.
    bool add(const std::string& name, handler_t handler, const std::string& description);

    // False, and nothing is kept, when the target is not a command. An alias that is there stays.
    bool add_alias(const std::string& alias, const std::string& target);

    // The command of that name or alias; none, with a message on standard error, for another.
    std::optional<entry_t> resolve(std::string_view name) const;

    // Runs the command on the calling thread and returns its result; 1, with a message on standard
    // error, when there is none or it throws a std::exception. Other exceptions pass.
    int run(std::string_view name, const std::vector<std::string>& arguments) const;

    // The usage text, commands in the order of their names.
    void print_usage(std::ostream& out, std::string_view program) const;

    // Whether it is a command or an alias.
    bool contains(std::string_view name) const;

  private:
    mutable std::shared_mutex _mutex;
    std::unordered_map<std::string, entry_t> _entries;
    std::unordered_map<std::string, std::string> _aliases;
    std::string _program_name;
};

// Prints a query's answer in one line on standard output and returns 0. For null, prints on
// standard error that `source`, the function it came from, returned nothing, and returns 1.
int print_answer(const nlohmann::json& answer, std::string_view source);
