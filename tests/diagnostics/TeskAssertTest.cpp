#include "diagnostics/TeskAssert.h"

#include "support/Assertions.h"

#include <gtest/gtest.h>

namespace {

int checkedHalf(int value) {
    TESK_PARAMETER_ASSERT(value % 2 == 0);
    return value / 2;
}

} // namespace

TEST(TeskAssert, ParameterAssertionReportsFunctionFileLineAndCondition) {
    EXPECT_EQ(checkedHalf(4), 2);
    try {
        checkedHalf(3);
        FAIL() << "no assertion";
    } catch (const tesk::test::AssertionFailed& caught) {
        EXPECT_EQ(caught.failure.description, "Invalid parameter not satisfying: value % 2 == 0");
        EXPECT_EQ(caught.failure.function, "checkedHalf");
        EXPECT_EQ(caught.failure.file, "TeskAssertTest.cpp");
        EXPECT_GT(caught.failure.line, 0);
    }
}

TEST(TeskAssertDeathTest, DefaultHandlerPrintsAndStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            tesk::setAssertionHandler(nullptr);
            checkedHalf(5);
        },
        "Assertion failure in checkedHalf, TeskAssertTest.cpp:[0-9]+\n.*Invalid parameter not "
        "satisfying: value % 2 == 0");
}
