#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <Qt>
#include <cstdint>
#include <optional>

namespace tesk {

/// The commands of a document window, from its menus, buttons and keys.
enum class WindowCommand {
    None, // a key consumed without effect
    PlayPause,
    Loop,
    Rewind,
    FastForward,
    JumpToBeginning,
    JumpToEnd,
    JumpToNextMarker,
    JumpToPreviousMarker,
    JumpToNextHighLevelMarker,
    JumpToPreviousHighLevelMarker,
    SelectAll,
    ClearSelection,
    ZoomIn,
    ZoomOut,
    ZoomToFitLoop,
    IncreaseSpeed,
    DecreaseSpeed,
    IncreasePitch,
    IncreasePitchFinely,
    IncreasePitchByOneOctave,
    DecreasePitch,
    DecreasePitchFinely,
    DecreasePitchByOneOctave,
    ResetPitch,
    DropGenericMarker,
    DropChorusMarker,
    DropVerseMarker,
    DropBridgeMarker,
    ExportSong,
    ExportLoop,
    Save,
    SaveAs,
    PageSetup,
    Print,
};

/// What the enabling rules of the window's commands look at.
struct WindowCommandState {
    bool hasSong = false;
    /// Playing, song or no song: the song's file can go while it plays from memory.
    bool playing = false;
    bool loopEnabled = false;
    double zoomLevel = 0.0;
    bool canIncreaseSpeed = false;
    bool canDecreaseSpeed = false;
    bool canIncreasePitch = false;
    bool canDecreasePitch = false;
};

/// The rules behind the window's menus, keys and wheel, apart from any widget. Any thread.
namespace WindowRules {

/// Whether the command's menu item is enabled.
bool isEnabled(WindowCommand command, const WindowCommandState& state);

/// The command of a key that reached the window. Keys are never passed on: an unmatched key
/// answers None. On this desktop Ctrl stands for the command key, Alt for the option key and
/// Meta for the control key. `text` is the key's characters, and `scanCode` the key's native
/// scan code (on X11 and Wayland the keycode, evdev's plus 8; 0 when unknown): under a layout
/// that writes no Latin letters (Cyrillic, Greek...) the letter commands are known by where their
/// keys lie on a QWERTY keyboard, as most such keyboards are marked.
WindowCommand commandForKey(int key, Qt::KeyboardModifiers modifiers, const QString& text,
                            quint32 scanCode = 0);

/// The key that gives `command` in a song's window, as menus show it beside the command's
/// name ("Space", "M"); empty for a command without one. Menus only show it: the window's own
/// key handling acts on it.
QString keyHint(WindowCommand command);

/// Whether a key held down in the window repeats `command`. Steps (the position, the speed,
/// the pitch, the zoom) repeat; a toggle, a drop or a command that opens a dialog does not, so
/// that holding Space or "m" a moment too long neither flips playback back and forth nor drops
/// a row of markers.
bool repeatsWhileHeld(WindowCommand command);

/// Where Play starts: from `current`, except that a song played to its end or its last frame
/// (to its start, when it plays backwards) starts again from the other end, rather than
/// stopping at once.
qint64 playStartFrame(qint64 current, qint64 frameCount, bool backwards);

/// Zoom moves on a grid of 0.05 steps within 0 to 1 (ties round to even, in single precision).
double zoomedIn(double zoomLevel);
double zoomedOut(double zoomLevel);

/// Frames the play head moves for a wheel's vertical delta, in wheel units: 441 frames a unit,
/// backwards for positive deltas, computed in single precision and truncated toward zero.
std::int32_t wheelFrameOffset(double delta);

/// `path` without a sound file's extension ("take.wav" is "take"); other dots ("Take 2.5")
/// belong to the name.
QString withoutSoundExtension(const QString& path);

/// The export file's path: `chosen` with the format's extension ("m4a" for index 0, "aif" for
/// 1) in place of a sound file's extension it has, or after its name. Empty for any other index.
QString exportPath(const QString& chosen, int formatIndex);

/// The Open Recent items for `paths`: each file's name, followed by its folder's where two
/// share a name ("01 Intro.mp3 — Album"), with "&" doubled so that it is shown, not taken
/// for a menu key.
QStringList recentItemTitles(const QStringList& paths);

/// The practice document's path: `chosen` as it is when it ends in ".tesk" (in any case), or
/// with ".tesk" after its name.
QString documentPath(const QString& chosen);

/// Where a song's window opens, cascaded from `next` (the last one's place moved down and
/// right, null for the first, which goes 60 points in from the top left of the screen's
/// `available` area). A window that would reach past the bottom starts a new column at the
/// top, one past the right a new row at the left, so that a long session never opens windows
/// out of sight; on a screen too small for them to step one way, they still step the other.
QPoint cascadedWindowPlace(const QPointF& next, const QSize& windowSize, const QRect& available);
/// Where a window of `size` opens again at the place `saved` (its frame when last saved), on
/// the screens' `available` areas: on the screen it overlaps most, moved in just enough to show
/// whole (its top left first, where it is larger than the screen). None when less than a
/// corner of 100 by 50 points of it would show on any screen (one that has gone since), or the
/// frame is empty: the window is then cascaded.
std::optional<QPoint> restoredWindowPlace(const QRectF& saved, const QSize& size,
                                          const QList<QRect>& available);
/// Where a window of `size` opens for `place` when other windows already stand at `taken`: one
/// cascade step down and right of each it would lie on (within half a step), cascaded on the
/// screen's `available` area as `cascadedWindowPlace` does, so that two practices saved at one
/// place do not open one hiding the other.
QPoint placeClearOf(QPoint place, const QSize& size, const QList<QPoint>& taken,
                    const QRect& available);
/// How far each window of the cascade lies from the one before.
inline constexpr int kCascadeStep = 24;

} // namespace WindowRules
} // namespace tesk
