#pragma once

#include "diagnostics/TeskError.h"

#include <gtest/gtest.h>
#include <optional>

namespace tesk::test {

/// Whether `error` is there, in `domain` with `code`, and its description names `named` (a
/// file, mostly): use as EXPECT_TRUE(isError(...)), which prints the error when it isn't.
template <typename Code>
testing::AssertionResult isError(const std::optional<TeskError>& error, const QString& domain,
                                 Code code, const QString& named = {}) {
    if (!error)
        return testing::AssertionFailure() << "no error";
    if (error->domain() != domain || error->code() != qint64(code) ||
        !error->localizedDescription().contains(named))
        return testing::AssertionFailure() << error->description().toStdString();
    return testing::AssertionSuccess();
}

} // namespace tesk::test
