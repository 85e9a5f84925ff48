#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "common/config/config.h"

TEST(config_paths, follow_home_at_each_call) {
    setenv("HOME", "/Users/a", 1);
    EXPECT_EQ(config_t::get_user_data_path(),
              "/Users/a/Library/Application Support/QlxControlCenter");
    EXPECT_EQ(config_t::get_log_data_path(), "/Users/a/Library/Logs/QlxDaemon.log");
    setenv("HOME", "", 1);
    EXPECT_EQ(config_t::get_user_data_path(), "Library/Application Support/QlxControlCenter");
    EXPECT_EQ(config_t::get_log_data_path(), "Library/Logs/QlxDaemon.log");
}

TEST(config_paths, need_home) {
    unsetenv("HOME");
    for (const auto path : {&config_t::get_user_data_path, &config_t::get_log_data_path}) {
        try {
            path();
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), std::string("HOME not set"));
        }
    }
}
