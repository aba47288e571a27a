#pragma once

// Reading values of the effect settings' dictionary form, which may come from a damaged or
// hand-edited file: a value of the wrong type counts as missing.

#include <QList>
#include <QVariant>
#include <optional>

namespace tesk {

/// A number (integer or floating point), else nothing.
std::optional<double> numberValue(const QVariant& value);
/// A boolean, or a number read as one (non-zero is true), else nothing.
std::optional<bool> booleanValue(const QVariant& value);
/// An array whose every element is a number, else nothing.
std::optional<QList<double>> numberListValue(const QVariant& value);
/// A dictionary, else nothing.
std::optional<QVariantMap> dictionaryValue(const QVariant& value);

} // namespace tesk
