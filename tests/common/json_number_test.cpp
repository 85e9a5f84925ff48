#include "common/json_number.h"

#include <gtest/gtest.h>

using nlohmann::json;

TEST(json_number, every_number_has_a_32_bit_value_or_none) {
    struct case_t {
        const char* text;
        std::uint32_t expected;
    };
    for (const auto& [text, expected] : {case_t{"0", 0U},
                                         {"4294967295", 0xFFFFFFFFU},
                                         {"-1", 0xFFFFFFFFU},
                                         {"-2147483648", 0x80000000U},
                                         {"1.9", 1U},
                                         {"-0.9", 0U},
                                         {"-1.9", 0xFFFFFFFFU},
                                         {"4294967295.9", 0xFFFFFFFFU},
                                         {"-2147483648.9", 0x80000000U},
                                         {"1e-300", 0U}}) {
        EXPECT_EQ(uint32_from_json(json::parse(text)), expected) << text;
    }
    for (const char* text :
         {"4294967296", "18446744073709551615", "18446744073709551616", "-2147483649",
          "-9223372036854775808", "4294967296.0", "-2147483649.0", "1e300", "-1e300"}) {
        EXPECT_EQ(uint32_from_json(json::parse(text)), std::nullopt) << text;
    }
    for (const char* text : {"true", "null", "\"1\"", "[1]", "{}"}) {
        EXPECT_THROW(uint32_from_json(json::parse(text)), json::type_error) << text;
    }
}
