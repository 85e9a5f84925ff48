#pragma once

#include <cstddef>
#include <string>

#include "control/objects.h"
#include "failures/failing_calls.h"
#include "failures/failing_memory.h"

// What fails: a call, a call and all later ones of its function, or an allocation of the daemon's.
enum class means_e { call, calls_from_then_on, allocation };
inline constexpr means_e all_means[] = {means_e::call, means_e::calls_from_then_on,
                                        means_e::allocation};

// Lets the one with this number fail, counted from here on; none for 0.
inline void begin_failing(means_e means, std::size_t number) {
    if (means == means_e::allocation) {
        failing_memory::refuse(number);
    } else {
        simulator::fail_call_number(number, means == means_e::call
                                                ? simulator::failure_e::once
                                                : simulator::failure_e::from_then_on);
    }
}

// Whether it has failed since.
inline bool has_failed() {
    return failing_memory::has_refused() || !simulator::failed_by_number().empty();
}

// Lets nothing fail any more. The function that has failed since the beginning; empty for none.
inline std::string end_failing() {
    std::string failed =
        failing_memory::has_refused() ? "operator new" : simulator::failed_by_number();
    failing_memory::refuse(0);
    simulator::fail_call_number(0);
    return failed;
}
