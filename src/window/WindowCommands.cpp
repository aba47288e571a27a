#include "window/WindowCommands.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tesk::WindowRules {

bool isEnabled(WindowCommand command, const WindowCommandState& state) {
    using C = WindowCommand;
    switch (command) {
    case C::None:
    case C::PageSetup:
    case C::Print:
        return false;
    case C::PlayPause:
        return state.hasSong || state.playing; // what plays can always be paused
    case C::Loop:
    case C::ZoomToFitLoop:
    case C::ExportLoop:
        return state.hasSong && state.loopEnabled;
    case C::ZoomIn:
        return state.hasSong && state.zoomLevel < 1.0;
    case C::ZoomOut:
        return state.hasSong && state.zoomLevel > 0.0;
    case C::IncreaseSpeed:
        return state.hasSong && state.canIncreaseSpeed;
    case C::DecreaseSpeed:
        return state.hasSong && state.canDecreaseSpeed;
    case C::IncreasePitch:
    case C::IncreasePitchFinely:
    case C::IncreasePitchByOneOctave:
        return state.hasSong && state.canIncreasePitch;
    case C::DecreasePitch:
    case C::DecreasePitchFinely:
    case C::DecreasePitchByOneOctave:
        return state.hasSong && state.canDecreasePitch;
    default:
        return state.hasSong;
    }
}

namespace {

/// The Latin letter of the key at `scanCode` on a QWERTY keyboard, of those with commands.
QChar qwertyLetter(quint32 scanCode) {
    switch (scanCode) {
    case 46:
        return QLatin1Char('l');
    case 54:
        return QLatin1Char('c');
    case 55:
        return QLatin1Char('v');
    case 56:
        return QLatin1Char('b');
    case 58:
        return QLatin1Char('m');
    default:
        return {};
    }
}

} // namespace

WindowCommand commandForKey(int key, Qt::KeyboardModifiers modifiers, const QString& text,
                            quint32 scanCode) {
    using C = WindowCommand;
    const bool command = modifiers & Qt::ControlModifier;
    const bool option = modifiers & Qt::AltModifier;
    const bool control = modifiers & Qt::MetaModifier;
    const bool shift = modifiers & Qt::ShiftModifier;
    switch (key) {
    case Qt::Key_Space:
        return C::PlayPause;
    case Qt::Key_Escape:
        return C::ClearSelection;
    case Qt::Key_Home:
        return C::JumpToBeginning;
    case Qt::Key_End:
        return C::JumpToEnd;
    case Qt::Key_PageUp:
        return C::JumpToPreviousMarker;
    case Qt::Key_PageDown:
        return C::JumpToNextMarker;
    case Qt::Key_Left:
        return command ? C::JumpToBeginning : option ? C::JumpToPreviousMarker : C::Rewind;
    case Qt::Key_Right:
        return command ? C::JumpToEnd : option ? C::JumpToNextMarker : C::FastForward;
    case Qt::Key_Down:
        return shift || control || option || command ? C::None : C::DecreaseSpeed;
    case Qt::Key_Up:
        return shift || control || option || command ? C::None : C::IncreaseSpeed;
    default:
        break;
    }
    if (control || option || command)
        return C::None;
    QString characters = text.toLower();
    // A letter of another script stands for the Latin letter on its key. A Latin layout's own
    // letters (a Turkish ö where QWERTY has c) keep to what they write.
    if (!characters.isEmpty() && characters.at(0).isLetter() &&
        characters.at(0).script() != QChar::Script_Latin && !qwertyLetter(scanCode).isNull())
        characters = qwertyLetter(scanCode);
    if (characters.startsWith(QLatin1Char('m')))
        return C::DropGenericMarker;
    if (characters.startsWith(QLatin1Char('c')))
        return C::DropChorusMarker;
    if (characters.startsWith(QLatin1Char('v')))
        return C::DropVerseMarker;
    if (characters.startsWith(QLatin1Char('b')))
        return C::DropBridgeMarker;
    if (characters.startsWith(QLatin1Char('l')))
        return C::Loop;
    return C::None;
}

QString keyHint(WindowCommand command) {
    using C = WindowCommand;
    switch (command) {
    case C::PlayPause:
        return QStringLiteral("Space");
    case C::Loop:
        return QStringLiteral("L");
    case C::Rewind:
        return QStringLiteral("Left");
    case C::FastForward:
        return QStringLiteral("Right");
    case C::JumpToBeginning:
        return QStringLiteral("Home");
    case C::JumpToEnd:
        return QStringLiteral("End");
    case C::JumpToNextMarker:
        return QStringLiteral("PgDown");
    case C::JumpToPreviousMarker:
        return QStringLiteral("PgUp");
    case C::DropGenericMarker:
        return QStringLiteral("M");
    case C::DropChorusMarker:
        return QStringLiteral("C");
    case C::DropVerseMarker:
        return QStringLiteral("V");
    case C::DropBridgeMarker:
        return QStringLiteral("B");
    case C::IncreaseSpeed:
        return QStringLiteral("Up");
    case C::DecreaseSpeed:
        return QStringLiteral("Down");
    case C::ClearSelection:
        return QStringLiteral("Esc");
    default:
        return {};
    }
}

qint64 playStartFrame(qint64 current, qint64 frameCount, bool backwards) {
    // The last frame counts as the end: a jump past the end leaves the position there.
    if (!backwards && current >= frameCount - 1)
        return 0;
    if (backwards && current <= 0)
        return frameCount;
    return current;
}

bool repeatsWhileHeld(WindowCommand command) {
    using C = WindowCommand;
    switch (command) {
    case C::PlayPause:
    case C::Loop:
    case C::DropGenericMarker:
    case C::DropChorusMarker:
    case C::DropVerseMarker:
    case C::DropBridgeMarker:
    case C::ExportSong:
    case C::ExportLoop:
    case C::Save:
    case C::SaveAs:
    case C::PageSetup:
    case C::Print:
        return false;
    default:
        return true;
    }
}

double zoomedIn(double zoomLevel) {
    return std::min(1.0, double(std::rint(float(zoomLevel) / 0.05f + 1.0f)) / 20.0);
}

double zoomedOut(double zoomLevel) {
    return std::max(0.0, double(std::rint(float(zoomLevel) / 0.05f - 1.0f)) / 20.0);
}

std::int32_t wheelFrameOffset(double delta) {
    return std::int32_t(float(delta) * -441.0f);
}

QString withoutSoundExtension(const QString& path) {
    // "take.wav" is not meant to become "take.wav.m4a"; in "Take 2.5" or "Intro.slow" the dot
    // is part of the name, which would otherwise lead to another file ("Take 2.m4a").
    static const QStringList soundSuffixes = {
        QStringLiteral("m4a"),  QStringLiteral("aif"), QStringLiteral("aiff"),
        QStringLiteral("aifc"), QStringLiteral("wav"), QStringLiteral("wave"),
        QStringLiteral("mp3"),  QStringLiteral("mp4"), QStringLiteral("aac"),
        QStringLiteral("flac"), QStringLiteral("ogg"), QStringLiteral("opus")};
    const QFileInfo file(path);
    if (!soundSuffixes.contains(file.suffix().toLower()))
        return path;
    return path.chopped(file.suffix().size() + 1);
}

QString exportPath(const QString& chosen, int formatIndex) {
    const char* extension = formatIndex == 0 ? "m4a" : formatIndex == 1 ? "aif" : nullptr;
    if (extension == nullptr)
        return {};
    return withoutSoundExtension(chosen) + QLatin1Char('.') + QLatin1String(extension);
}

QString documentPath(const QString& chosen) {
    return chosen.endsWith(QLatin1String(".tesk"), Qt::CaseInsensitive)
               ? chosen
               : chosen + QLatin1String(".tesk");
}

QPoint cascadedWindowPlace(const QPointF& next, const QSize& windowSize, const QRect& available) {
    // The places where the whole window shows, or its top left where it cannot.
    const int lastX = std::max(available.left(), available.right() + 1 - windowSize.width());
    const int lastY = std::max(available.top(), available.bottom() + 1 - windowSize.height());
    const auto fitsX = [&](int x) { return x >= available.left() && x <= lastX; };
    const auto fitsY = [&](int y) { return y >= available.top() && y <= lastY; };
    const QPoint first(std::min(available.left() + 60, lastX),
                       std::min(available.top() + 60, lastY));
    if (next.isNull())
        return first;
    const QPoint place = next.toPoint();
    // Past the bottom, a new column starts at the top; past the right, a new row at the left.
    return {fitsX(place.x()) ? place.x() : first.x(), fitsY(place.y()) ? place.y() : first.y()};
}

QPoint placeClearOf(QPoint place, const QSize& size, const QList<QPoint>& taken,
                    const QRect& available) {
    const auto onAnother = [&](QPoint at) {
        return std::any_of(taken.begin(), taken.end(), [&](QPoint other) {
            return std::abs(other.x() - at.x()) < kCascadeStep / 2 &&
                   std::abs(other.y() - at.y()) < kCascadeStep / 2;
        });
    };
    // A step for each window at most: on a screen full of them the cascade may come round to a
    // taken place, which is then the one to take.
    for (qsizetype steps = 0; steps < taken.size() && onAnother(place); ++steps)
        place = cascadedWindowPlace(QPointF(place + QPoint(kCascadeStep, kCascadeStep)), size,
                                    available);
    return place;
}

std::optional<QPoint> restoredWindowPlace(const QRectF& saved, const QSize& size,
                                          const QList<QRect>& available) {
    if (saved.width() <= 0 || saved.height() <= 0)
        return std::nullopt;
    const QRect frame(saved.topLeft().toPoint(), size);
    const QRect* best = nullptr;
    qint64 mostShown = 0;
    for (const QRect& screen : available) {
        const QRect shown = frame.intersected(screen);
        const qint64 area = qint64(shown.width()) * shown.height();
        if (shown.width() >= 100 && shown.height() >= 50 && area > mostShown)
            best = &screen, mostShown = area;
    }
    if (best == nullptr)
        return std::nullopt;
    const int lastX = std::max(best->left(), best->right() + 1 - size.width());
    const int lastY = std::max(best->top(), best->bottom() + 1 - size.height());
    return QPoint(std::clamp(frame.left(), best->left(), lastX),
                  std::clamp(frame.top(), best->top(), lastY));
}

QStringList recentItemTitles(const QStringList& paths) {
    QStringList names;
    for (const QString& path : paths)
        names.append(QFileInfo(path).fileName());
    QStringList titles;
    for (qsizetype i = 0; i < paths.size(); ++i) {
        QString title = names[i];
        if (names.count(names[i]) > 1)
            title +=
                QStringLiteral(" — ") + QFileInfo(QFileInfo(paths[i]).absolutePath()).fileName();
        titles.append(title.replace(QLatin1Char('&'), QStringLiteral("&&")));
    }
    return titles;
}

} // namespace tesk::WindowRules
