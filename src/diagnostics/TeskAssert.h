#pragma once

#include <string>

namespace tesk {

/// What an assertion reports: where it failed and why.
struct AssertionFailure {
    std::string function;
    std::string file;
    int line = 0;
    std::string description;
};

/// Receives every assertion failure before Tesk stops. The default handler prints the
/// failure to standard error; tests install one that throws, to observe the failure.
using AssertionHandler = void (*)(const AssertionFailure& failure);

/// Replaces the handler and returns the previous one. Any thread, but meant for start-up
/// and tests.
AssertionHandler setAssertionHandler(AssertionHandler handler);

/// Reports a programming error and stops the program (the handler may leave by throwing).
/// Any thread: it is the one thing the device callback or the rendering thread may do that is not
/// real-time safe, because it only happens when Tesk is already broken.
[[noreturn]] void handleAssertionFailure(const char* function, const char* file, int line,
                                         const std::string& description);

/// The file name without its folders, for reports.
const char* lastPathComponent(const char* path);

} // namespace tesk

/// Checks an argument or a state a caller promised; reports
/// "Invalid parameter not satisfying: <condition>" when it does not hold.
#define TESK_PARAMETER_ASSERT(condition)                                                           \
    do {                                                                                           \
        if (!(condition))                                                                          \
            ::tesk::handleAssertionFailure(__func__, __FILE__, __LINE__,                           \
                                           "Invalid parameter not satisfying: " #condition);       \
    } while (false)

/// Checks an internal condition; the report's description is the condition's text.
#define TESK_ASSERT(condition)                                                                     \
    do {                                                                                           \
        if (!(condition))                                                                          \
            ::tesk::handleAssertionFailure(__func__, __FILE__, __LINE__, #condition);              \
    } while (false)
