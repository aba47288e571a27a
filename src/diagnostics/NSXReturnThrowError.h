#pragma once

// Checks the result of a call into a library, judged by the C++ type of that result, and turns
// a failure into an error value that records where the check was made. Set-up code raises it
// as an NSXError; tear-down code logs it; real-time code never uses either (it returns
// statuses).

#include "diagnostics/TeskError.h"

#include <QObject>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>

namespace tesk {

/// A 32-bit status where 0 means success, distinct from `int` so that the check can tell the
/// two apart ("l" rather than "i").
enum OSStatus : std::int32_t { noErr = 0 };

/// Judges `value` by the first character of `typeCode` (an Objective-C style type encoding)
/// and, on failure, stores an error value with the four reporting keys in `outError`. On
/// success `outError` is left untouched. An unknown type code is a programming error and fails
/// an assertion. Any thread but the device callback and the rendering thread.
void NSXMakeErrorImp(const char* typeCode, std::int32_t value, const char* file, int line,
                     const char* function, const char* expression,
                     std::optional<TeskError>* outError);

/// The exception set-up code raises when a check fails. Its reason is the error's description;
/// its user information holds the error under "error".
class NSXError : public std::exception {
public:
    explicit NSXError(TeskError error);

    const TeskError& error() const { return mError; }
    const QString& reason() const { return mReason; }
    QVariantMap userInfo() const;
    const char* what() const noexcept override { return mWhat.c_str(); }

private:
    TeskError mError;
    QString mReason;
    std::string mWhat;
};

/// The type encoding of a checked call's result, as the check expects it.
template <typename T> constexpr const char* nsxTypeEncoding() {
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_same_v<U, OSStatus>)
        return "l";
    else if constexpr (std::is_same_v<U, bool> || std::is_same_v<U, char> ||
                       std::is_same_v<U, signed char>)
        return "c";
    else if constexpr (std::is_same_v<U, unsigned char>)
        return "C";
    else if constexpr (std::is_same_v<U, short>)
        return "s";
    else if constexpr (std::is_same_v<U, unsigned short>)
        return "S";
    else if constexpr (std::is_same_v<U, int>)
        return "i";
    else if constexpr (std::is_same_v<U, unsigned int>)
        return "I";
    else if constexpr (std::is_same_v<U, long> || std::is_same_v<U, long long>)
        return "q";
    else if constexpr (std::is_same_v<U, unsigned long> || std::is_same_v<U, unsigned long long>)
        return "Q";
    else if constexpr (std::is_same_v<U, float>)
        return "f";
    else if constexpr (std::is_same_v<U, double>)
        return "d";
    else if constexpr (std::is_same_v<U, char*>)
        return "*";
    else if constexpr (std::is_same_v<U, const char*>)
        return "r*";
    else if constexpr (std::is_pointer_v<U> &&
                       std::is_base_of_v<QObject, std::remove_cv_t<std::remove_pointer_t<U>>>)
        return "@";
    else if constexpr (std::is_pointer_v<U> || std::is_null_pointer_v<U>)
        return "^";
    else
        return "?";
}

/// The value the check judges: pointers and booleans widened to 0 or 1, integers as their
/// low 32 bits, anything else 0.
template <typename T> std::int32_t nsxCheckedValue(const T& value) {
    if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>)
        return value != nullptr ? 1 : 0;
    else if constexpr (std::is_same_v<T, bool>)
        return value ? 1 : 0;
    else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>)
        return static_cast<std::int32_t>(value);
    else
        return 0;
}

/// The error value a checked call's result makes, if it counts as failure.
template <typename T>
std::optional<TeskError> nsxCheck(const T& result, const char* expression, const char* file,
                                  int line, const char* function) {
    std::optional<TeskError> error;
    NSXMakeErrorImp(nsxTypeEncoding<T>(), nsxCheckedValue(result), file, line, function, expression,
                    &error);
    return error;
}

/// Behind NSXThrowError: raises NSXError when the check fails, else returns the result.
template <typename T>
T nsxCheckOrThrow(T result, const char* expression, const char* file, int line,
                  const char* function) {
    if (auto error = nsxCheck(result, expression, file, line, function))
        throw NSXError(*error);
    return result;
}

/// Writes "(ERROR) <file> : <description>" to Tesk's log.
void nsxLogError(const char* file, const TeskError& error);

/// Behind NSXLogError: logs when the check fails (for destructors, which must not throw).
template <typename T>
void nsxCheckOrLog(T result, const char* expression, const char* file, int line,
                   const char* function) {
    if (auto error = nsxCheck(result, expression, file, line, function))
        nsxLogError(file, *error);
}

} // namespace tesk

/// Runs a call, raises NSXError if its result counts as failure, and gives the result back.
/// For set-up code; never on the device callback or the rendering thread.
#define NSXThrowError(expression)                                                                  \
    ::tesk::nsxCheckOrThrow((expression), #expression, __FILE__, __LINE__, Q_FUNC_INFO)

/// Runs a call and logs its failure instead of raising: for destructors and tear-down.
#define NSXLogError(expression)                                                                    \
    ::tesk::nsxCheckOrLog((expression), #expression, __FILE__, __LINE__, Q_FUNC_INFO)
