#include "macos/query_manager.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <mutex>
#include <utility>

#include "macos/query_manager_mice.h"

#ifndef QLX_VERSION
#define QLX_VERSION "?"  // a source compiled by itself, to look at the object
#endif

query_manager_t::query_manager_t(std::string program_name)
    : _program_name(std::move(program_name)) {
    add(
        "help",
        [this](const std::vector<std::string>&) {
            print_usage(std::cout, _program_name);
            return 0;
        },
        "Displays this help");
    add(
        "version",
        [](const std::vector<std::string>&) {
            std::cout << "QLX Query v" QLX_VERSION "\nBuild: " __DATE__ " " __TIME__ "\n";
            return 0;
        },
        "Displays the version");
    add(
        "list-mice",
        [](const std::vector<std::string>&) {
            return print_answer(list_all_mice(), "list_all_mice()");
        },
        "Lists all detected mice (JSON)");
    add_alias("ls", "list-mice");
    add_alias("-h", "help");
}

bool query_manager_t::add(const std::string& name, handler_t handler,
                          const std::string& description) {
    const std::unique_lock lock(_mutex);
    return _entries.try_emplace(name, entry_t{std::move(handler), description}).second;
}

bool query_manager_t::add_alias(const std::string& alias, const std::string& target) {
    const std::unique_lock lock(_mutex);
    if (!_entries.contains(target)) {
        return false;
    }
    _aliases.try_emplace(alias, target);
    return true;
}

std::optional<query_manager_t::entry_t> query_manager_t::resolve(std::string_view name) const {
    {
        const std::shared_lock lock(_mutex);
        std::string key(name);
        if (const auto alias = _aliases.find(key); alias != _aliases.end()) {
            key = alias->second;
        }
        if (const auto entry = _entries.find(key); entry != _entries.end()) {
            return entry->second;
        }
    }
    std::cerr << "Error: unknown command '" << name << "'\n";
    return std::nullopt;
}

int query_manager_t::run(std::string_view name, const std::vector<std::string>& arguments) const {
    const auto entry = resolve(name);
    if (!entry) {
        return 1;
    }
    try {
        return entry->handler(arguments);
    } catch (const std::exception& error) {
        std::cerr << "Error: exception in handler '" << name << "': " << error.what() << "\n";
        return 1;
    }
}

void query_manager_t::print_usage(std::ostream& out, std::string_view program) const {
    out << "Usage: " << program << " --request <command> [args...]\n\n"
        << "Available commands:\n";

    std::vector<std::pair<std::string, std::string>> commands;
    std::vector<std::pair<std::string, std::string>> aliases;
    {
        const std::shared_lock lock(_mutex);
        for (const auto& [name, entry] : _entries) {
            commands.emplace_back(name, entry.description);
        }
        aliases.assign(_aliases.begin(), _aliases.end());
    }
    std::sort(commands.begin(), commands.end());
    for (const auto& [name, description] : commands) {
        out << "  " << name;
        if (!description.empty()) {
            out << " — " << description;
        }
        out << "\n";
    }
    if (aliases.empty()) {
        return;
    }
    out << "\nAlias:\n";
    for (const auto& [alias, target] : aliases) {
        out << "  " << alias << " -> " << target << "\n";
    }
}

bool query_manager_t::contains(std::string_view name) const {
    const std::shared_lock lock(_mutex);
    const std::string key(name);
    return _entries.contains(key) || _aliases.contains(key);
}

int print_answer(const nlohmann::json& answer, std::string_view source) {
    if (answer.is_null()) {
        std::cerr << "Error: " << source << " returned NULL\n";
        return 1;
    }
    std::cout << answer.dump() << "\n";
    return 0;
}
