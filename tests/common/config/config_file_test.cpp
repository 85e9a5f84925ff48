#include "common/config/config_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/temporary_home.h"

namespace {

std::string repeat(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

std::string refusal(const std::string& text) {
    try {
        parse_config(text);
    } catch (const invalid_config_t& error) {
        return error.what();
    }
    return "accepted";
}

}  // namespace

TEST(config_file, nesting_is_limited_without_recursion) {
    const auto too_deep = "nested deeper than " + std::to_string(config_nesting_limit) + " levels";
    const auto open = repeat("[", config_nesting_limit);
    const auto close = repeat("]", config_nesting_limit);
    EXPECT_EQ(refusal(open + close), "accepted");
    EXPECT_EQ(refusal("[" + open + close + "]"), too_deep);
    EXPECT_EQ(refusal(repeat(R"({"a":)", 1'000'000)), too_deep);
    // Brackets inside of texts, and behind escaped quotes and backslashes, are no levels.
    const auto brackets = repeat("[{", 1000);
    EXPECT_EQ(refusal(R"(["\")" + brackets + R"(\\", "x", ")" + brackets + "\"]"), "accepted");
    EXPECT_EQ(refusal(R"(["\\", )" + brackets), too_deep);
    // Quadratic work here would outlast the test's time.
    EXPECT_EQ(refusal("[" + repeat("{},", 500'000) + "{}]"), "accepted");
}

TEST(config_file, texts_that_are_no_document_are_refused_with_the_reason) {
    for (const char* text : {"", "{", "[1,]", "{} // no comments", "\"\xff\"", "[1] [2]"}) {
        EXPECT_EQ(refusal(text).rfind("[json.exception.parse_error.101]", 0), 0U) << refusal(text);
    }
    EXPECT_EQ(refusal(std::string(config_size_limit + 1, ' ')), "larger than 16777216 bytes");
}

TEST(config_file, only_regular_files_are_read) {
    const temporary_home_t home;
    const auto path = home.path() / "settings";
    home.put_pipe(home.path() / "quiet pipe", false);
    home.put_pipe(home.path() / "busy pipe", true);
    for (const char* none : {"settings", ".", "quiet pipe", "busy pipe"}) {
        EXPECT_EQ(read_config_file(home.path() / none), std::nullopt) << none;
    }
    const auto bytes = repeat(std::string("a\0\r\n\xff", 5), 30'000);
    std::ofstream(path, std::ios::binary) << bytes;
    std::filesystem::create_symlink(path, home.path() / "link");
    EXPECT_EQ(read_config_file(home.path() / "link"), bytes);

    std::filesystem::resize_file(path, config_size_limit * 4);
    const auto text = read_config_file(path);
    ASSERT_TRUE(text.has_value());
    EXPECT_GT(text->size(), config_size_limit);
    EXPECT_LT(text->size(), config_size_limit * 2);
}
