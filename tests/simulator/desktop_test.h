#pragma once

#include "support/desktop.h"
#include "support/test.h"

// Each of its tests ends with nothing under way and nothing owned.
class desktop_test : public testing::Test {
  protected:
    desktop_test() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void TearDown() override {
        EXPECT_TRUE(simulator::settle(simulator::run_loop_e::run));
        EXPECT_EQ(simulator::objects_alive(), lines_t());
        EXPECT_EQ(simulator::taps_alive(), 0U);
        simulator::shut_down();
    }
};
