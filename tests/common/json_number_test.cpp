#include "common/json_number.h"

#include <gtest/gtest.h>

#include <sstream>

using nlohmann::json;

TEST(json_number, every_number_has_a_32_bit_value_or_none) {
    std::istringstream rows(
        "0 0  4294967295 4294967295  4294967296 none  18446744073709551615 none "
        "18446744073709551616 none  -1 4294967295  -2147483648 2147483648  -2147483649 none "
        "-9223372036854775808 none  1.9 1  -0.9 0  -1.9 4294967295  4294967295.9 4294967295 "
        "4294967296.0 none  -2147483648.9 2147483648  -2147483649.0 none  1e300 none "
        "-1e300 none  1e-300 0");
    for (std::string text, expected; rows >> text >> expected;) {
        const auto number = uint32_from_json(json::parse(text));
        EXPECT_EQ(number ? std::to_string(*number) : "none", expected) << text;
    }
    for (const char* text : {"true", "null", "\"1\"", "[1]", "{}"}) {
        EXPECT_THROW(uint32_from_json(json::parse(text)), json::type_error) << text;
    }
}
