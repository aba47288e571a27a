#include "app/FeedbackMessage.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

namespace tesk {

namespace {
QString escaped(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

QString readPrettyName(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("Linux");
    static const QRegularExpression line(QStringLiteral("^PRETTY_NAME=\"?([^\"]*)\"?\\s*$"));
    while (!file.atEnd()) {
        const auto match = line.match(QString::fromUtf8(file.readLine()).trimmed());
        if (match.hasMatch() && !match.captured(1).isEmpty())
            return match.captured(1);
    }
    return QStringLiteral("Linux");
}
} // namespace

QUrl FeedbackMessage::mailtoURL(const QString& versionText, const QString& systemVersion) {
    const QString subject = QStringLiteral("Tesk Feedback: (Enter title here)");
    const QString body = QStringLiteral("Here's how I feel about Tesk:\n\n\n--\n(I'm using Tesk "
                                        "version %1 with %2.)\n")
                             .arg(versionText, systemVersion);
    return QUrl::fromEncoded(QStringLiteral("mailto:%1?SUBJECT=%2&BODY=%3")
                                 .arg(escaped(SupportAddress), escaped(subject), escaped(body))
                                 .toLatin1(),
                             QUrl::StrictMode);
}

QString FeedbackMessage::systemVersion(const QString& osReleasePath) {
    if (osReleasePath != QLatin1String("/etc/os-release"))
        return readPrettyName(osReleasePath);
    static const QString kept = readPrettyName(osReleasePath);
    return kept;
}

QString FeedbackMessage::versionText() {
    return QStringLiteral("%1 (%2)").arg(QCoreApplication::applicationVersion(),
                                         QStringLiteral(TESK_BUILD_ID));
}

} // namespace tesk
