#include "audio/SettingsValues.h"

namespace tesk {

std::optional<double> numberValue(const QVariant& value) {
    switch (value.metaType().id()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toDouble();
    default:
        return std::nullopt;
    }
}

std::optional<bool> booleanValue(const QVariant& value) {
    if (value.metaType().id() == QMetaType::Bool)
        return value.toBool();
    if (const auto number = numberValue(value))
        return *number != 0.0;
    return std::nullopt;
}

std::optional<QList<double>> numberListValue(const QVariant& value) {
    if (value.metaType().id() != QMetaType::QVariantList)
        return std::nullopt;
    QList<double> numbers;
    for (const QVariant& element : value.toList()) {
        const auto number = numberValue(element);
        if (!number)
            return std::nullopt;
        numbers.push_back(*number);
    }
    return numbers;
}

std::optional<QVariantMap> dictionaryValue(const QVariant& value) {
    if (value.metaType().id() != QMetaType::QVariantMap)
        return std::nullopt;
    return value.toMap();
}

} // namespace tesk
