// Start of the unit tests. The daemon's library has a main of its own; this one is linked as an object and wins.

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "fast");
    return RUN_ALL_TESTS();
}
