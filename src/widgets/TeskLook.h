#pragma once

// The colours and sizes that make Tesk's own views look like one product: the dark transport
// panel and effect editors with their light blue marks, the marker kinds' colours, and the
// strips' heights. Standard widgets keep the desktop's style; these are for the views that draw
// themselves.

#include <QColor>
#include <array>

namespace tesk::look {

/// Text, marks and handles on the dark panels.
inline constexpr QColor hudLightBlue{217, 238, 254};
/// The transport panel and the effect editors' graph areas: near black, slightly translucent.
inline constexpr QColor hudPanel{18, 22, 28, 217};
inline constexpr QColor hudPanelBorder{255, 255, 255, 28};
/// The effect editors' faint grid.
inline constexpr QColor graphGrid{217, 238, 254, 30};
/// A switched-off effect's editor is drawn at this opacity.
inline constexpr qreal disabledOpacity = 0.4;

/// The ring round whatever the keys move, once Tab has gone there.
inline constexpr QColor focusRing{64, 140, 240};

/// One colour per marker kind, in the kinds' order: generic, chorus, verse, bridge.
inline constexpr std::array<QColor, 4> markerColours{
    QColor{96, 116, 138}, // generic: grey-blue
    QColor{232, 128, 38}, // chorus: orange
    QColor{72, 160, 84},  // verse: green
    QColor{142, 88, 176}, // bridge: purple
};

// Heights in logical pixels.
inline constexpr int waveformStripHeight = 180;
inline constexpr int rulerHeight = 18;
inline constexpr int markerStripHeight = 16;
inline constexpr int scrollerHeight = 15;
inline constexpr int bottomBarHeight = 69;
inline constexpr int headerHeight = 110;
inline constexpr int effectsPanelHeight = 170;
inline constexpr int minimumWindowWidth = 860;
inline constexpr int maximumWindowWidth = 8192;

} // namespace tesk::look
