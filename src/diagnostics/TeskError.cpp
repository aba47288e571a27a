#include "diagnostics/TeskError.h"

#include <QCoreApplication>

namespace tesk {

TeskError::TeskError(QString domain, qint64 code, QVariantMap userInfo)
    : mDomain(std::move(domain))
    , mCode(code)
    , mUserInfo(std::move(userInfo)) {}

QString TeskError::localizedDescription() const {
    const QString given = mUserInfo.value(LocalizedDescriptionKey).toString();
    if (!given.isEmpty())
        return given;
    return QCoreApplication::translate("TeskError",
                                       "The operation couldn’t be completed. (%1 error %2.)")
        .arg(mDomain)
        .arg(mCode);
}

QString TeskError::localizedRecoverySuggestion() const {
    return mUserInfo.value(LocalizedRecoverySuggestionKey).toString();
}

QString TeskError::description() const {
    QString text = QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
                       .arg(mDomain)
                       .arg(mCode)
                       .arg(localizedDescription());
    if (mUserInfo.contains(OriginKey)) {
        text += QStringLiteral(" in %1 (%2:%3, %4)")
                    .arg(mUserInfo.value(OriginKey).toString(),
                         mUserInfo.value(ReportingFileKey).toString(),
                         mUserInfo.value(ReportingLineKey).toString(),
                         mUserInfo.value(ReportingMethodKey).toString());
    }
    return text;
}

} // namespace tesk
