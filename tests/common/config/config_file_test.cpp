#include "common/config/config_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/temporary_home.h"

namespace {

std::string repeat(const std::string& text, std::size_t times) {
    std::string all;
    all.reserve(text.size() * times);
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
    const auto nested = [](std::size_t levels) {
        return repeat("[", levels) + repeat("]", levels);
    };
    EXPECT_EQ(refusal(nested(config_nesting_limit)), "accepted");
    EXPECT_EQ(refusal(nested(config_nesting_limit + 1)), too_deep);
    EXPECT_EQ(refusal(nested(1'000'000)), too_deep);
    EXPECT_EQ(refusal(repeat("[", 1'000'000)), too_deep);
    EXPECT_EQ(refusal(repeat(R"({"a":)", 1'000'000)), too_deep);
    // Brackets inside of texts, and behind escaped quotes and backslashes, are no levels.
    const auto brackets = repeat("[{", 1000);
    EXPECT_EQ(refusal(R"(["\")" + brackets + R"(\\", "x", ")" + brackets + "\"]"), "accepted");
    EXPECT_EQ(refusal(R"(["\\", )" + brackets), too_deep);
}

TEST(config_file, texts_that_are_no_document_are_refused_with_the_reason) {
    for (const char* text : {"", "{", "[1,]", "{} // no comments", "\"\xff\"", "[1] [2]", "nul"}) {
        EXPECT_EQ(refusal(text).rfind("[json.exception.parse_error.101]", 0), 0U) << refusal(text);
    }
    EXPECT_EQ(refusal("[1e400]"),
              "[json.exception.out_of_range.406] number overflow parsing '1e400'");
    EXPECT_EQ(refusal(std::string(config_size_limit + 1, ' ')), "larger than 16777216 bytes");
}

TEST(config_file, a_document_of_many_small_objects_takes_linear_time) {
    const auto document = parse_config("[" + repeat("{},", 500'000) + "{}]");
    EXPECT_EQ(document.size(), 500'001U);  // quadratic work here would outlast the test's time
}

TEST(config_file, only_regular_files_are_read) {
    const temporary_home_t home;
    const auto path = home.path() / "settings";
    EXPECT_EQ(read_config_file(path), std::nullopt);
    EXPECT_EQ(read_config_file(""), std::nullopt);
    EXPECT_EQ(read_config_file(home.path()), std::nullopt);
    ASSERT_EQ(mkfifo((home.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(read_config_file(home.path() / "pipe"), std::nullopt);  // and does not block

    const auto bytes = repeat(std::string("a\0\r\n\xff", 5), 30'000);
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(read_config_file(path), bytes);
    std::filesystem::create_symlink(path, home.path() / "link");
    EXPECT_EQ(read_config_file(home.path() / "link"), bytes);

    std::filesystem::resize_file(path, config_size_limit * 4);
    const auto text = read_config_file(path);
    ASSERT_TRUE(text.has_value());
    EXPECT_GT(text->size(), config_size_limit);
    EXPECT_LT(text->size(), config_size_limit * 2);
}
