#include "common/json_number.h"

#include <cmath>
#include <limits>

namespace {

constexpr std::int64_t smallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::uint32_t>::max();

std::optional<std::uint32_t> wrap(std::int64_t number) {
    if (number < smallest || number > largest) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(number);
}

}  // namespace

std::optional<std::uint32_t> uint32_from_json(const nlohmann::json& json) {
    if (json.is_number_unsigned()) {
        const auto number = json.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(largest)) {
            return std::nullopt;
        }
        return static_cast<std::uint32_t>(number);
    }
    if (json.is_number_integer()) {
        return wrap(json.get<std::int64_t>());
    }
    // What is not a number ends here, in the library's own type error.
    const double number = std::trunc(json.get<double>());
    // A conversion is defined only inside the target's range; NaN fails both comparisons.
    if (number >= static_cast<double>(smallest) && number <= static_cast<double>(largest)) {
        return wrap(static_cast<std::int64_t>(number));
    }
    return std::nullopt;
}
