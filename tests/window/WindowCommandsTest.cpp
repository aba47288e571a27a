#include "window/WindowCommands.h"

#include <QKeySequence>
#include <gtest/gtest.h>

using namespace tesk;
using C = WindowCommand;

TEST(WindowRules, EveryKeyOfTheTableGivesItsCommandAndEveryOtherKeyIsConsumed) {
    const Qt::KeyboardModifiers none = Qt::NoModifier;
    const Qt::KeyboardModifiers shift = Qt::ShiftModifier;
    const Qt::KeyboardModifiers ctrl = Qt::ControlModifier;
    const Qt::KeyboardModifiers alt = Qt::AltModifier;
    const Qt::KeyboardModifiers meta = Qt::MetaModifier;
    struct Case {
        int key;
        Qt::KeyboardModifiers modifiers;
        const char* text;
        C command;
    };
    const Case cases[] = {
        {Qt::Key_Space, none, " ", C::PlayPause},
        {Qt::Key_Space, ctrl | shift, " ", C::PlayPause}, // any modifiers
        {Qt::Key_Escape, alt, "", C::ClearSelection},
        {Qt::Key_Home, none, "", C::JumpToBeginning},
        {Qt::Key_End, shift, "", C::JumpToEnd},
        {Qt::Key_PageUp, none, "", C::JumpToPreviousMarker},
        {Qt::Key_PageDown, meta, "", C::JumpToNextMarker},
        {Qt::Key_Left, ctrl, "", C::JumpToBeginning},
        {Qt::Key_Left, ctrl | alt, "", C::JumpToBeginning}, // the command key wins
        {Qt::Key_Left, alt, "", C::JumpToPreviousMarker},
        {Qt::Key_Left, none, "", C::Rewind},
        {Qt::Key_Left, shift, "", C::Rewind},
        {Qt::Key_Right, ctrl, "", C::JumpToEnd},
        {Qt::Key_Right, alt, "", C::JumpToNextMarker},
        {Qt::Key_Right, meta, "", C::FastForward},
        {Qt::Key_Down, none, "", C::DecreaseSpeed},
        {Qt::Key_Down, shift, "", C::None},
        {Qt::Key_Up, none, "", C::IncreaseSpeed},
        {Qt::Key_Up, meta, "", C::None},
        {Qt::Key_M, none, "m", C::DropGenericMarker},
        {Qt::Key_M, shift, "M", C::DropGenericMarker},
        {Qt::Key_M, ctrl, "\r", C::None}, // Ctrl+M does nothing
        {Qt::Key_C, none, "c", C::DropChorusMarker},
        {Qt::Key_V, shift, "V", C::DropVerseMarker},
        {Qt::Key_B, none, "b", C::DropBridgeMarker},
        {Qt::Key_B, alt, "b", C::None},
        {Qt::Key_L, none, "l", C::Loop},
        {Qt::Key_X, none, "x", C::None},
        {Qt::Key_F5, none, "", C::None},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "key " << c.key << " modifiers " << c.modifiers.toInt());
        EXPECT_EQ(WindowRules::commandForKey(c.key, c.modifiers, QString::fromUtf8(c.text)),
                  c.command);
    }
}

TEST(WindowRules, UnderALayoutWithoutLatinLettersTheLetterKeysGoByWhereTheyLie) {
    // Scan codes of the keys marked M, C, V, B, L, A and ";" on a QWERTY keyboard.
    constexpr quint32 m = 58, c = 54, v = 55, b = 56, l = 46, a = 38, semicolon = 47;
    const struct {
        int key;
        Qt::KeyboardModifiers modifiers;
        const char* text;
        quint32 scanCode;
        C command;
    } cases[] = {
        {0x42C, Qt::NoModifier, "ь", m, C::DropGenericMarker}, // Russian
        {0x421, Qt::NoModifier, "с", c, C::DropChorusMarker},
        {0x41C, Qt::ShiftModifier, "М", v, C::DropVerseMarker},
        {0x418, Qt::NoModifier, "и", b, C::DropBridgeMarker},
        {0x414, Qt::NoModifier, "д", l, C::Loop},
        {0x39C, Qt::NoModifier, "μ", m, C::DropGenericMarker}, // Greek
        {0x5E6, Qt::NoModifier, "צ", m, C::DropGenericMarker}, // Hebrew
        {0x424, Qt::NoModifier, "ф", a, C::None},              // no command on that key
        {0x42C, Qt::ControlModifier, "\x1d", m, C::None},
        {0x42C, Qt::AltModifier, "ь", m, C::None},
        {0x42C, Qt::NoModifier, "ь", 0, C::None}, // where the key lies is unknown
        {0xD6, Qt::NoModifier, "ö", c, C::None},  // Turkish F: a Latin letter of its own
        {Qt::Key_M, Qt::NoModifier, "m", semicolon, C::DropGenericMarker}, // French AZERTY
        {Qt::Key_Comma, Qt::NoModifier, ",", m, C::None},
        {Qt::Key_7, Qt::NoModifier, "7", m, C::None},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.text);
        EXPECT_EQ(
            WindowRules::commandForKey(k.key, k.modifiers, QString::fromUtf8(k.text), k.scanCode),
            k.command);
    }
}

TEST(WindowRules, AWindowOpensAgainWhereItWasMovedInToShowWhole) {
    const QRect left(0, 0, 1920, 1050), right(1920, 0, 1280, 1000); // two screens, side by side
    const QSize size(1100, 500);
    const struct {
        const char* name;
        QRectF saved;
        QList<QRect> screens;
        std::optional<QPoint> place;
    } cases[] = {
        {"on its screen", {400, 250, 1100, 600}, {left}, QPoint(400, 250)},
        {"a little past the left edge", {-8, 120, 1100, 600}, {left}, QPoint(0, 120)},
        {"past the bottom right", {1000, 900, 1100, 600}, {left}, QPoint(820, 550)},
        {"mostly on the second screen", {1700, 100, 1100, 600}, {left, right}, QPoint(1920, 100)},
        {"on the second screen, now gone", {2500, 100, 1100, 600}, {left}, std::nullopt},
        {"a sliver left in sight", {1850, 100, 1100, 600}, {left}, std::nullopt},
        {"never placed", {}, {left}, std::nullopt},
        {"larger than the screen", {-50, -20, 1100, 600}, {QRect(0, 0, 1000, 400)}, QPoint(0, 0)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(WindowRules::restoredWindowPlace(c.saved, size, c.screens), c.place);
    }
}

TEST(WindowRules, TheKeyAMenuShowsGivesItsCommand) {
    int hinted = 0;
    for (int index = 0; index <= int(WindowCommand::Print); ++index) {
        const auto command = WindowCommand(index);
        const QString hint = WindowRules::keyHint(command);
        if (hint.isEmpty())
            continue;
        ++hinted;
        const QKeyCombination key = QKeySequence(hint)[0];
        const QString text = hint.size() == 1 ? hint.toLower() : QString();
        EXPECT_EQ(WindowRules::commandForKey(key.key(), key.keyboardModifiers(), text), command)
            << hint.toStdString();
    }
    EXPECT_EQ(hinted, 15);
}

TEST(WindowRules, PlayAtTheEndStartsAgainFromTheOtherEnd) {
    const struct {
        qint64 current;
        bool backwards;
        qint64 from;
    } cases[] = {{1000, false, 1000},   {44100, false, 0}, {50000, false, 0},
                 {1000, true, 1000},    {0, true, 44100},  {0, false, 0},
                 {44098, false, 44098}, {44099, false, 0}, {44100, true, 44100}};
    for (const auto& c : cases)
        EXPECT_EQ(WindowRules::playStartFrame(c.current, 44100, c.backwards), c.from)
            << c.current << (c.backwards ? " backwards" : "");
}

TEST(WindowRules, ZoomMovesOnTheGridAndTheWheelMovesWholeFrames) {
    const struct {
        double from, in, out;
    } zooms[] = {{0.0, 0.05, 0.0},  {0.93, 1.0, 0.9},   {1.0, 1.0, 0.95},
                 {0.5, 0.55, 0.45}, {0.024, 0.05, 0.0}, {0.026, 0.1, 0.0}};
    for (const auto& z : zooms) {
        SCOPED_TRACE(z.from);
        EXPECT_DOUBLE_EQ(WindowRules::zoomedIn(z.from), z.in);
        EXPECT_DOUBLE_EQ(WindowRules::zoomedOut(z.from), z.out);
    }
    const struct {
        double delta;
        std::int32_t frames;
    } wheels[] = {{1.5, -661}, {1.0, -441}, {-1.0, 441}, {0.001, 0}, {-2.5, 1102}};
    for (const auto& w : wheels)
        EXPECT_EQ(WindowRules::wheelFrameOffset(w.delta), w.frames) << w.delta;
}

TEST(WindowRules, MenuItemsFollowTheirEnablingRules) {
    WindowCommandState none;
    WindowCommandState song;
    song.hasSong = true;
    song.zoomLevel = 0.5;
    WindowCommandState full = song;
    full.loopEnabled = true;
    full.canIncreaseSpeed = full.canDecreaseSpeed = true;
    full.canIncreasePitch = full.canDecreasePitch = true;
    WindowCommandState zoomedIn = full;
    zoomedIn.zoomLevel = 1.0;
    WindowCommandState zoomedOut = full;
    zoomedOut.zoomLevel = 0.0;
    // Playing from memory, the song's file gone: only Pause.
    WindowCommandState playingGone = full;
    playingGone.hasSong = false;
    playingGone.playing = true;

    const struct {
        C command;
        bool empty, withSong, withEverything, atMostZoom, atLeastZoom, playingSongGone;
    } rules[] = {
        {C::PlayPause, false, true, true, true, true, true},
        {C::Loop, false, false, true, true, true, false},
        {C::ExportLoop, false, false, true, true, true, false},
        {C::ZoomToFitLoop, false, false, true, true, true, false},
        {C::ExportSong, false, true, true, true, true, false},
        {C::ZoomIn, false, true, true, false, true, false},
        {C::ZoomOut, false, true, true, true, false, false},
        {C::IncreaseSpeed, false, false, true, true, true, false},
        {C::DecreasePitchByOneOctave, false, false, true, true, true, false},
        {C::ResetPitch, false, true, true, true, true, false},
        {C::Save, false, true, true, true, true, false},
        {C::SelectAll, false, true, true, true, true, false},
        {C::Print, false, false, false, false, false, false},
        {C::PageSetup, false, false, false, false, false, false},
    };
    for (const auto& rule : rules) {
        SCOPED_TRACE(int(rule.command));
        EXPECT_EQ(WindowRules::isEnabled(rule.command, none), rule.empty);
        EXPECT_EQ(WindowRules::isEnabled(rule.command, song), rule.withSong);
        EXPECT_EQ(WindowRules::isEnabled(rule.command, full), rule.withEverything);
        EXPECT_EQ(WindowRules::isEnabled(rule.command, zoomedIn), rule.atMostZoom);
        EXPECT_EQ(WindowRules::isEnabled(rule.command, zoomedOut), rule.atLeastZoom);
        EXPECT_EQ(WindowRules::isEnabled(rule.command, playingGone), rule.playingSongGone);
    }
}

TEST(WindowRules, RecentItemsShowTheirNamesAndTheFolderWhereNamesClash) {
    const QStringList paths{"/music/Rock & Roll.mp3", "/a/Kind of Blue/01 Intro.mp3",
                            "/b/Live/01 Intro.mp3", "/p/take.tesk"};
    const QStringList titles{"Rock && Roll.mp3", "01 Intro.mp3 — Kind of Blue",
                             "01 Intro.mp3 — Live", "take.tesk"};
    EXPECT_EQ(WindowRules::recentItemTitles(paths), titles);
}

TEST(WindowRules, WindowsCascadeAndStartAgainBeforeLeavingTheScreen) {
    const QRect screen(0, 30, 1920, 1050); // a panel above
    const QSize window(960, 400);
    const struct {
        QPointF next;
        QPoint place;
    } cases[] = {
        {{}, {60, 90}},           // the first window
        {{84, 114}, {84, 114}},   // the next, cascaded
        {{900, 680}, {900, 680}}, // the last that fits
        {{900, 681}, {900, 90}},  // past the bottom: a new column at the top
        {{961, 500}, {60, 500}},  // past the right: a new row at the left
        {{961, 681}, {60, 90}},   // past both: the first place again
        {{2000, 100}, {60, 100}}, // a place on a screen that is gone
    };
    for (const auto& c : cases)
        EXPECT_EQ(WindowRules::cascadedWindowPlace(c.next, window, screen), c.place)
            << c.next.x() << "," << c.next.y();
    // A screen hardly wider than the window: the windows still step down, not onto each other.
    const QRect narrow(0, 0, 1024, 768);
    QPointF next;
    QList<QPoint> places;
    for (int i = 0; i < 4; ++i) {
        places.append(WindowRules::cascadedWindowPlace(next, window, narrow));
        next = QPointF(places.last() + QPoint(24, 24));
    }
    EXPECT_EQ(places, (QList<QPoint>{{60, 60}, {60, 84}, {60, 108}, {60, 132}}));
    // A window larger than the screen shows its top left.
    EXPECT_EQ(WindowRules::cascadedWindowPlace({84, 84}, QSize(1200, 900), narrow), QPoint(0, 0));
}

TEST(WindowRules, AWindowOpeningOnAnotherStepsClearOfIt) {
    const QRect screen(0, 0, 1920, 1050);
    const QRect small(0, 0, 1200, 600); // room for two places of the cascade
    const QSize window(1100, 500);
    const struct {
        const char* name;
        QPoint place;
        QList<QPoint> taken;
        QRect available;
        QPoint cleared;
    } cases[] = {
        {"alone", {400, 250}, {}, screen, {400, 250}},
        {"beside another", {400, 250}, {{700, 250}}, screen, {400, 250}},
        {"on another", {400, 250}, {{400, 250}}, screen, {424, 274}},
        {"a few points off another", {400, 250}, {{405, 241}}, screen, {424, 274}},
        {"on a cascade of two", {400, 250}, {{400, 250}, {424, 274}}, screen, {448, 298}},
        {"on another at the bottom", {400, 550}, {{400, 550}}, screen, {424, 60}},
        {"on another, room for one more", {60, 60}, {{60, 60}}, small, {84, 84}},
        {"every place taken", {60, 60}, {{60, 60}, {84, 84}}, small, {60, 60}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(WindowRules::placeClearOf(c.place, window, c.taken, c.available), c.cleared);
    }
}

TEST(WindowRules, TheExportFormatReplacesTheChosenExtension) {
    const struct {
        const char* chosen;
        int format;
        const char* path;
    } cases[] = {
        {"/music/take.m4a", 1, "/music/take.aif"},
        {"/music/take", 0, "/music/take.m4a"},
        {"/music/v1.2 take.aif", 0, "/music/v1.2 take.m4a"},
        {"/music/take.AIFF", 0, "/music/take.m4a"},
        {"/music/take.wav", 0, "/music/take.m4a"},
        {"/music/take.Mp3", 1, "/music/take.aif"},
        {"/music/take.flac.ogg", 1, "/music/take.flac.aif"},
        // A dot that only belongs to the name keeps its part: "Intro.m4a" may be the song.
        {"/music/Intro.slow", 0, "/music/Intro.slow.m4a"},
        {"/music/Take 2.5", 1, "/music/Take 2.5.aif"},
        {"/music/take.m4a", 2, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WindowRules::exportPath(c.chosen, c.format), c.path) << c.chosen;
}

TEST(WindowRules, ADocumentNameGetsItsExtensionUnlessItHasIt) {
    const struct {
        const char* chosen;
        const char* path;
    } cases[] = {
        {"/music/take", "/music/take.tesk"},         {"/music/take.tesk", "/music/take.tesk"},
        {"/music/take.TESK", "/music/take.TESK"},    {"/music/Solo 1.5x", "/music/Solo 1.5x.tesk"},
        {"/music/take.wav", "/music/take.wav.tesk"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WindowRules::documentPath(c.chosen), c.path) << c.chosen;
}
