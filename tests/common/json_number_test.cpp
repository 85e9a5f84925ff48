#include "common/json_number.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using nlohmann::json;

TEST(json_number, every_number_has_a_32_bit_value_or_none) {
    struct case_t {
        std::string text;
        std::optional<std::uint32_t> expected;
    };
    const case_t cases[] = {
        {"0", 0U},
        {"4294967295", 0xFFFFFFFFU},
        {"4294967296", std::nullopt},
        {"18446744073709551615", std::nullopt},
        {"18446744073709551616", std::nullopt},
        {"-1", 0xFFFFFFFFU},
        {"-2147483648", 0x80000000U},
        {"-2147483649", std::nullopt},
        {"-9223372036854775808", std::nullopt},
        {"1.9", 1U},
        {"-0.9", 0U},
        {"-1.9", 0xFFFFFFFFU},
        {"4294967295.9", 0xFFFFFFFFU},
        {"4294967296.0", std::nullopt},
        {"-2147483648.9", 0x80000000U},
        {"-2147483649.0", std::nullopt},
        {"1e300", std::nullopt},
        {"-1e300", std::nullopt},
        {"1e-300", 0U},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(uint32_from_json(json::parse(text)), expected) << text;
    }
    EXPECT_EQ(uint32_from_json(json(std::numeric_limits<double>::quiet_NaN())), std::nullopt);
}

TEST(json_number, anything_else_raises_the_librarys_type_error) {
    for (const char* text : {"true", "null", "\"1\"", "[1]", "{}"}) {
        const auto value = json::parse(text);
        try {
            uint32_from_json(value);
            ADD_FAILURE() << text;
        } catch (const json::type_error& error) {
            EXPECT_EQ(error.what(),
                      std::string("[json.exception.type_error.302] type must be number, but is ") +
                          value.type_name());
        }
    }
}
