#include "diagnostics/NSXReturnThrowError.h"

#include "support/Assertions.h"

#include <QtGlobal>
#include <gtest/gtest.h>

using namespace tesk;

namespace {

std::optional<TeskError> check(const char* typeCode, std::int32_t value) {
    std::optional<TeskError> error;
    NSXMakeErrorImp(typeCode, value, "/src/audio/Some File.cpp", 42, "void f()", "call(1, 2)",
                    &error);
    return error;
}

struct Failure {
    const char* typeCode;
    std::int32_t value;
    const QString& domain;
    qint64 code;
};

} // namespace

TEST(NSXMakeErrorImp, SuccessLeavesTheOutErrorUntouched) {
    const std::pair<const char*, std::int32_t> successes[] = {
        {"l", 0}, {"s", 0}, {"i", 0}, {"I", 1},  {"I", 0x7fffffff},
        {"c", 1}, {"^", 1}, {"*", 1}, {"r*", 1}, {"@", 1},
    };
    for (const auto& [typeCode, value] : successes) {
        std::optional<TeskError> error = TeskError("untouched", 7);
        NSXMakeErrorImp(typeCode, value, __FILE__, __LINE__, Q_FUNC_INFO, "x", &error);
        EXPECT_EQ(error, TeskError("untouched", 7)) << typeCode << " " << value;
    }
}

TEST(NSXMakeErrorImp, FailuresGetTheDomainAndCodeOfTheirType) {
    const Failure failures[] = {
        {"l", -50, NSOSStatusErrorDomain, -50}, {"s", 12, NSOSStatusErrorDomain, 12},
        {"I", 0, NSMachErrorDomain, -1},        {"I", -1, NSMachErrorDomain, -1},
        {"i", 5, NSMachErrorDomain, 5},         {"i", -1, NSPOSIXErrorDomain, ENOENT},
        {"c", 0, BOOLErrorDomain, -1},          {"^", 0, NULLPointerErrorDomain, -1},
        {"*", 0, NULLPointerErrorDomain, -1},   {"r*", 0, NULLPointerErrorDomain, -1},
        {"@", 0, NSCocoaErrorDomain, -1},
    };
    for (const Failure& failure : failures) {
        SCOPED_TRACE(std::string(failure.typeCode) + " " + std::to_string(failure.value));
        errno = ENOENT; // what an int of -1 reports
        const auto error = check(failure.typeCode, failure.value);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->domain(), failure.domain);
        EXPECT_EQ(error->code(), failure.code);
    }
}

TEST(NSXMakeErrorImp, RecordsWhereTheCheckWasMade) {
    const auto error = check("l", -50);
    ASSERT_TRUE(error.has_value());
    const QVariantMap& info = error->userInfo();
    EXPECT_EQ(info.size(), 4);
    EXPECT_EQ(info.value(ReportingFileKey).toString(), "/src/audio/Some File.cpp");
    EXPECT_EQ(info.value(ReportingLineKey).toInt(), 42);
    EXPECT_EQ(info.value(ReportingMethodKey).toString(), "void f()");
    EXPECT_EQ(info.value(OriginKey).toString(), "call(1, 2)");
}

TEST(NSXMakeErrorImp, UnknownTypeCodesFailTheAssertion) {
    for (const char* typeCode : {"q", "d", "r", "ri", "{", "~"}) {
        try {
            check(typeCode, 1);
            ADD_FAILURE() << "no assertion for " << typeCode;
        } catch (const test::AssertionFailed& caught) {
            EXPECT_EQ(caught.failure.description,
                      std::string("NSXErrorCodeType_Unknown: \"") + typeCode + "\"");
            EXPECT_EQ(caught.failure.function, "NSXMakeErrorImp");
            EXPECT_EQ(caught.failure.file, "NSXReturnThrowError");
            EXPECT_EQ(caught.failure.line, 103);
        }
    }
}

namespace {
OSStatus failingStatus() {
    return OSStatus(-50);
}
int* nullResult() {
    return nullptr;
}
long longResult() {
    return 0;
}
struct Probe : QObject {};
} // namespace

TEST(NSXThrowError, TypeCodesComeFromTheResultsType) {
    EXPECT_STREQ(nsxTypeEncoding<OSStatus>(), "l");
    EXPECT_STREQ(nsxTypeEncoding<int>(), "i");
    EXPECT_STREQ(nsxTypeEncoding<unsigned>(), "I");
    EXPECT_STREQ(nsxTypeEncoding<bool>(), "c");
    EXPECT_STREQ(nsxTypeEncoding<void*>(), "^");
    EXPECT_STREQ(nsxTypeEncoding<const char*>(), "r*");
    EXPECT_STREQ(nsxTypeEncoding<Probe*>(), "@");
    EXPECT_STREQ(nsxTypeEncoding<short>(), "s");
}

TEST(NSXThrowError, RaisesWithTheCallsTextAndGivesSuccessfulResultsBack) {
    try {
        NSXThrowError(failingStatus());
        FAIL() << "no exception";
    } catch (const NSXError& raised) {
        EXPECT_EQ(raised.error().domain(), NSOSStatusErrorDomain);
        EXPECT_EQ(raised.error().code(), -50);
        const QVariantMap& info = raised.error().userInfo();
        EXPECT_EQ(info.value(OriginKey).toString(), "failingStatus()");
        EXPECT_TRUE(
            info.value(ReportingFileKey).toString().endsWith("NSXReturnThrowErrorTest.cpp"));
        EXPECT_EQ(raised.reason(), raised.error().description());
        EXPECT_EQ(raised.userInfo().value("error").value<TeskError>(), raised.error());
        EXPECT_TRUE(std::string(raised.what()).find("-50") != std::string::npos);
    }
    EXPECT_THROW(NSXThrowError(nullResult()), NSXError);
    EXPECT_THROW(NSXThrowError(false), NSXError);

    int value = 7;
    EXPECT_EQ(NSXThrowError(&value), &value);
    EXPECT_EQ(NSXThrowError(OSStatus(noErr)), noErr);
    // A 64-bit result has no rule of its own: that is a programming error.
    EXPECT_THROW(NSXThrowError(longResult()), test::AssertionFailed);
}

namespace {
QStringList loggedLines;
void collectMessage(QtMsgType, const QMessageLogContext&, const QString& message) {
    loggedLines.push_back(message);
}
} // namespace

TEST(NSXLogError, LogsTheFileNameAndDescriptionInsteadOfRaising) {
    loggedLines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectMessage);
    NSXLogError(failingStatus());
    NSXLogError(OSStatus(noErr));
    qInstallMessageHandler(previous);

    ASSERT_EQ(loggedLines.size(), 1);
    EXPECT_TRUE(loggedLines[0].startsWith("(ERROR) NSXReturnThrowErrorTest.cpp : "))
        << loggedLines[0].toStdString();
    EXPECT_TRUE(loggedLines[0].contains("-50"));
}
