#include "core/calls.h"

#include <map>
#include <mutex>
#include <utility>

namespace simulator {
namespace {

struct expected_t {
    std::mutex mutex;
    std::multimap<std::string, std::function<void()>, std::less<>> calls;
};

expected_t& expected() {
    static auto* const all = new expected_t;  // outlives every static object of the program
    return *all;
}

}  // namespace

void after_next(std::string function, std::function<void()> what) {
    const std::lock_guard lock(expected().mutex);
    expected().calls.emplace(std::move(function), std::move(what));
}

call_t::~call_t() {
    std::function<void()> what;
    {
        const std::lock_guard lock(expected().mutex);
        const auto found = expected().calls.find(_function);
        if (found == expected().calls.end()) {
            return;
        }
        what = std::move(found->second);
        expected().calls.erase(found);
    }
    what();
}

}  // namespace simulator
