#include "common/config/config_file.h"

#include "support/test.h"

TEST(config_file, texts_that_are_no_document_or_too_large_are_refused_with_the_reason) {
    const auto refusal = [](const std::string& text) {
        return error_text([&] { parse_config(text); });
    };
    for (const char* text : {"", "{", "[1,]", "{} // no comments", "\"\xff\"", "[1] [2]"}) {
        EXPECT_EQ(refusal(text).rfind("[json.exception.parse_error.101]", 0), 0U) << refusal(text);
    }
    EXPECT_EQ(refusal(std::string(config_size_limit + 1, ' ')), "larger than 16777216 bytes");

    const auto too_deep = "nested deeper than " + std::to_string(config_nesting_limit) + " levels";
    const std::string open(config_nesting_limit, '[');
    const std::string close(config_nesting_limit, ']');
    EXPECT_EQ(refusal(open + close), "none");
    EXPECT_EQ(refusal("[" + open + close + "]"), too_deep);
    EXPECT_EQ(refusal(std::string(1'000'000, '[')), too_deep);
    // Brackets inside of texts, and behind escaped quotes and backslashes, are no levels.
    EXPECT_EQ(refusal(R"(["\")" + open + R"([\\", "x", ")" + open + "\"]"), "none");
    EXPECT_EQ(refusal(R"(["\\", )" + open), too_deep);
    // Quadratic work here would outlast the test's time.
    EXPECT_EQ(refusal(nlohmann::json(std::vector(500'000, nlohmann::json::object())).dump()),
              "none");
}

TEST(config_file, a_document_is_what_the_library_reads) {
    for (
        const char* text :
        {R"({"b": [null, true, false, -1, 18446744073709551615, 0.5, "x", {}, [[], 2]], "a": {"c": {}},
              "b2": "y"})",
         R"({"a": {"b": 1}, "c": 2, "a": [3], "a": {"d": 4, "d": 5}})", "\"only\"", " 7 "}) {
        EXPECT_EQ(parse_config(text).dump(), nlohmann::json::parse(text).dump()) << text;
    }
}

TEST(config_file, only_regular_files_are_read) {
    const temporary_home_t home;
    const auto path = home.path() / "settings";
    home.put_pipe(home.path() / "quiet pipe", false);
    home.put_pipe(home.path() / "busy pipe", true);
    for (const char* none : {"settings", ".", "quiet pipe", "busy pipe"}) {
        EXPECT_EQ(read_config_file(home.path() / none), std::nullopt) << none;
    }
    const auto bytes = std::string(150'000, '\r') + std::string("\n\0\xff", 3);
    std::ofstream(path, std::ios::binary) << bytes;
    std::filesystem::create_symlink(path, home.path() / "link");
    EXPECT_EQ(read_config_file(home.path() / "link"), bytes);

    std::filesystem::resize_file(path, config_size_limit * 4);
    const auto size = read_config_file(path).value_or("").size();
    EXPECT_TRUE(size > config_size_limit && size < config_size_limit * 2) << size;
}
