#pragma once

#include <QString>
#include <QUrl>

namespace tesk {

/// The e-mail a user sends from Help > Send Feedback…: addressed to Tesk's developers, naming
/// the version of Tesk and of the system so that a report can be reproduced. Main thread.
class FeedbackMessage {
public:
    static inline const QString SupportAddress = QStringLiteral("feedback@teskapp.org");

    /// "mailto:ADDRESS?SUBJECT=...&BODY=..." with each part percent-escaped, so that versions
    /// with spaces and parentheses still give a valid URL.
    static QUrl mailtoURL(const QString& versionText, const QString& systemVersion);
    /// The running system's name, the PRETTY_NAME of `osReleasePath`; read once per process
    /// for the default path. "Linux" when the file says nothing.
    static QString systemVersion(const QString& osReleasePath = QStringLiteral("/etc/os-release"));
    /// "VERSION (BUILD)" of this Tesk.
    static QString versionText();
};

} // namespace tesk
