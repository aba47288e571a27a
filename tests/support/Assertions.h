#pragma once

#include "diagnostics/TeskAssert.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace tesk::test {

/// Thrown by the tests' assertion handler in place of stopping the program.
struct AssertionFailed : std::runtime_error {
    explicit AssertionFailed(AssertionFailure failure)
        : std::runtime_error(failure.description)
        , failure(std::move(failure)) {}
    AssertionFailure failure;
};

} // namespace tesk::test

/// Expects `statement` to fail one of Tesk's assertions with exactly `expectedDescription`.
#define EXPECT_TESK_ASSERTION(statement, expectedDescription)                                      \
    do {                                                                                           \
        try {                                                                                      \
            statement;                                                                             \
            ADD_FAILURE() << "no assertion failed in: " #statement;                                \
        } catch (const ::tesk::test::AssertionFailed& caught) {                                    \
            EXPECT_EQ(caught.failure.description, std::string(expectedDescription));               \
        }                                                                                          \
    } while (false)
