#pragma once

#include <exception>
#include <string>

// What the call throws, in its own words; "none" when it returns.
template <typename call_t>
std::string error_text(call_t call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "none";
}
