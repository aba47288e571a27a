#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

namespace tesk {

/// An error value: a domain, a code within it and user information. Plain value; any thread.
class TeskError {
public:
    TeskError() = default;
    TeskError(QString domain, qint64 code, QVariantMap userInfo = {});

    const QString& domain() const { return mDomain; }
    qint64 code() const { return mCode; }
    const QVariantMap& userInfo() const { return mUserInfo; }

    /// The text to show the user: the user information's "NSLocalizedDescription" when given,
    /// else a generic sentence naming the domain and the code.
    QString localizedDescription() const;
    /// "NSLocalizedRecoverySuggestion" of the user information, or empty.
    QString localizedRecoverySuggestion() const;
    /// A one-line account for logs and exceptions: domain, code, description and the
    /// place the error was found when known.
    QString description() const;

    bool operator==(const TeskError& other) const = default;

private:
    QString mDomain;
    qint64 mCode = 0;
    QVariantMap mUserInfo;
};

// Domains.
inline const QString NULLPointerErrorDomain = QStringLiteral("NULLPointerErrorDomain");
inline const QString BOOLErrorDomain = QStringLiteral("BOOLErrorDomain");
inline const QString NSCocoaErrorDomain = QStringLiteral("NSCocoaErrorDomain");
inline const QString NSMachErrorDomain = QStringLiteral("NSMachErrorDomain");
inline const QString NSPOSIXErrorDomain = QStringLiteral("NSPOSIXErrorDomain");
inline const QString NSOSStatusErrorDomain = QStringLiteral("NSOSStatusErrorDomain");

// User-information keys.
inline const QString ReportingFileKey = QStringLiteral("reportingFile");
inline const QString ReportingLineKey = QStringLiteral("reportingLine");
inline const QString ReportingMethodKey = QStringLiteral("reportingMethod");
inline const QString OriginKey = QStringLiteral("origin");
inline const QString LocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
inline const QString LocalizedRecoverySuggestionKey =
    QStringLiteral("NSLocalizedRecoverySuggestion");
/// The error that caused this one, as a TeskError in a QVariant.
inline const QString UnderlyingErrorKey = QStringLiteral("NSUnderlyingError");

} // namespace tesk

Q_DECLARE_METATYPE(tesk::TeskError)
