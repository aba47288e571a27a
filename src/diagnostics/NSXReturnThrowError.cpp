#include "diagnostics/NSXReturnThrowError.h"

#include "diagnostics/TeskAssert.h"

#include <QDebug>

namespace tesk {

void NSXMakeErrorImp(const char* typeCode, std::int32_t value, const char* file, int line,
                     const char* function, const char* expression,
                     std::optional<TeskError>* outError) {
    // errno first: anything below may change it.
    const int savedErrno = errno;

    QString domain;
    qint64 code = -1;
    bool failed = false;
    switch (typeCode[0]) {
    case '*':
    case '^':
        failed = value == 0;
        domain = NULLPointerErrorDomain;
        break;
    case '@':
        failed = value == 0;
        domain = NSCocoaErrorDomain;
        break;
    case 'c':
        failed = value == 0;
        domain = BOOLErrorDomain;
        break;
    case 'I':
        // Both 0 and all bits set count as failure for unsigned results.
        failed = value == 0 || value == -1;
        domain = NSMachErrorDomain;
        break;
    case 'i':
        failed = value != 0;
        if (value == -1) {
            domain = NSPOSIXErrorDomain;
            code = savedErrno;
        } else {
            domain = NSMachErrorDomain;
            code = value;
        }
        break;
    case 'l':
    case 's':
        failed = value != 0;
        domain = NSOSStatusErrorDomain;
        code = value;
        break;
    case 'r':
        // "r*" is a constant character pointer; any other qualified type is unknown.
        if (typeCode[1] == '*') {
            failed = value == 0;
            domain = NULLPointerErrorDomain;
            break;
        }
        [[fallthrough]];
    default:
        handleAssertionFailure(
            "NSXMakeErrorImp", "NSXReturnThrowError", 103,
            (QStringLiteral("NSXErrorCodeType_Unknown: \"%1\"").arg(QString::fromUtf8(typeCode)))
                .toStdString());
    }

    if (!failed || outError == nullptr)
        return;
    *outError = TeskError(domain, code,
                          QVariantMap{{ReportingFileKey, QString::fromUtf8(file)},
                                      {ReportingLineKey, line},
                                      {ReportingMethodKey, QString::fromUtf8(function)},
                                      {OriginKey, QString::fromUtf8(expression)}});
}

NSXError::NSXError(TeskError error)
    : mError(std::move(error))
    , mReason(mError.description())
    , mWhat(mReason.toStdString()) {}

QVariantMap NSXError::userInfo() const {
    return QVariantMap{{QStringLiteral("error"), QVariant::fromValue(mError)}};
}

void nsxLogError(const char* file, const TeskError& error) {
    qWarning().noquote() << QStringLiteral("(ERROR) %1 : %2")
                                .arg(QString::fromUtf8(lastPathComponent(file)),
                                     error.localizedDescription());
}

} // namespace tesk
