#include "core/failure.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "control/objects.h"

namespace simulator {
namespace {

struct request_t {
    std::size_t passing = 0;  // calls that go well before those that fail
    std::size_t failing = 0;
};

struct requests_t {
    std::mutex mutex;
    std::map<std::string, request_t, std::less<>> left;
    std::size_t counted = 0;
    std::map<std::string, std::size_t, std::less<>> counted_of;  // by function
    std::size_t failing = 0;                                     // by its number; 0: none
    failure_e kind = failure_e::once;
    std::string failed;  // the function that failed by number
};

requests_t& requests() {
    static auto* const all = new requests_t;  // outlives every static object of the program
    return *all;
}

}  // namespace

void misuse(std::string_view function, std::string_view what) {
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(function.size()), function.data(),
                 static_cast<int>(what.size()), what.data());
    std::abort();
}

void not_modelled(std::string_view function, std::string_view what) {
    misuse(function, "not modelled: " + std::string(what));
}

void fail_next(std::string_view function, std::size_t times) {
    const std::lock_guard lock(requests().mutex);
    requests().left[std::string(function)].failing += times;
}

void fail_call(std::string_view function, std::size_t which) {
    const std::lock_guard lock(requests().mutex);
    requests().left[std::string(function)] = {which - 1, 1};
}

void fail_call_number(std::size_t number, failure_e kind) {
    const std::lock_guard lock(requests().mutex);
    requests().counted = 0;
    requests().counted_of.clear();
    requests().failing = number;
    requests().kind = kind;
    requests().failed.clear();
}

std::string failed_by_number() {
    const std::lock_guard lock(requests().mutex);
    return requests().failed;
}

std::size_t counted_calls(std::string_view function) {
    const std::lock_guard lock(requests().mutex);
    const auto found = requests().counted_of.find(function);
    return found == requests().counted_of.end() ? 0 : found->second;
}

bool shall_fail(std::string_view function) {
    const std::lock_guard lock(requests().mutex);
    ++requests().counted_of[std::string(function)];
    if (++requests().counted == requests().failing) {
        requests().failed = function;
        return true;
    }
    if (requests().kind == failure_e::from_then_on && requests().failed == function) {
        return true;
    }
    const auto found = requests().left.find(function);
    if (found == requests().left.end()) {
        return false;
    }
    if (found->second.passing > 0) {
        --found->second.passing;
        return false;
    }
    if (--found->second.failing == 0) {
        requests().left.erase(found);
    }
    return true;
}

}  // namespace simulator
