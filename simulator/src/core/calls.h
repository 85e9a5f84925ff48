#pragma once

#include <string_view>

#include "control/calls.h"

namespace simulator {

// Runs what before_next_call() left for the function, if anything. With no lock held.
void before_call(std::string_view function);

// Stands first in a function that after_next() knows, so that it goes last, after all locks.
class call_t {
  public:
    explicit call_t(const char* function) : _function(function) {}
    call_t(const call_t&) = delete;
    call_t& operator=(const call_t&) = delete;
    ~call_t();

  private:
    const char* _function;
};

}  // namespace simulator
