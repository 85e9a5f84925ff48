#include "core/failure.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "control/objects.h"

namespace simulator {
namespace {

struct requests_t {
    std::mutex mutex;
    std::map<std::string, std::size_t, std::less<>> left;
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
    requests().left[std::string(function)] += times;
}

bool shall_fail(std::string_view function) {
    const std::lock_guard lock(requests().mutex);
    const auto found = requests().left.find(function);
    if (found == requests().left.end()) {
        return false;
    }
    if (--found->second == 0) {
        requests().left.erase(found);
    }
    return true;
}

}  // namespace simulator
