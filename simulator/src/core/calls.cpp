#include "core/calls.h"

#include <map>
#include <mutex>
#include <utility>

namespace simulator {
namespace {

// What waits for calls, in the order in which it was asked for.
class waiting_t {
  public:
    void add(std::string function, std::function<void()> what) {
        const std::lock_guard lock(_mutex);
        _waiting.emplace(std::move(function), std::move(what));
    }

    void run_next(std::string_view function) {
        std::function<void()> what;
        {
            const std::lock_guard lock(_mutex);
            const auto found = _waiting.lower_bound(function);
            if (found == _waiting.end() || found->first != function) {
                return;
            }
            what = std::move(found->second);
            _waiting.erase(found);
        }
        what();
    }

  private:
    std::mutex _mutex;
    std::multimap<std::string, std::function<void()>, std::less<>> _waiting;
};

// Both outlive every static object of the program.
waiting_t& before_calls() {
    static auto* const all = new waiting_t;
    return *all;
}

waiting_t& after_calls() {
    static auto* const all = new waiting_t;
    return *all;
}

}  // namespace

void before_next_call(std::string function, std::function<void()> what) {
    before_calls().add(std::move(function), std::move(what));
}

void after_next(std::string function, std::function<void()> what) {
    after_calls().add(std::move(function), std::move(what));
}

void before_call(std::string_view function) {
    before_calls().run_next(function);
}

call_t::~call_t() {
    after_calls().run_next(_function);
}

}  // namespace simulator
