#pragma once

#include <QString>

namespace tesk {

/// Names that tie the running Tesk to the desktop: the desktop file, the icon, the
/// single-instance socket. Any thread.
struct ApplicationIdentity {
    static inline const QString id = QStringLiteral("org.teskapp.Tesk");
};

} // namespace tesk
