#pragma once

#include "audio/MarkerKind.h"
#include <QString>
#include <QtGlobal>
#include <cstdint>
#include <optional>

namespace tesk {

class NamedImage;

/// The four marker kinds, in their fixed order.

/// The binding and property name of a kind's array ("genericMarkers"...). A kind above 3 is a
/// programming error.
QString bindingNameForType(std::uint32_t kind);
/// The kind's letter ("M", "C", "V", "B"), translatable.
QString charForMarkerType(std::uint32_t kind);
/// "GenericMarkerN" / "GenericMarkerP" and so on.
const NamedImage& markerImageForType(std::uint32_t kind);
const NamedImage& pressedMarkerImageForType(std::uint32_t kind);

/// One marker flag on the waveform view: its kind and frame, and how a gesture shows it.
struct MarkerItem {
    std::uint32_t kind = 0;
    qint64 frame = 0;
    bool pressed = false;
    /// Its left edge in song points while it is dragged; otherwise placed from the frame.
    std::optional<double> dragX;
    qreal opacity = 1.0;
};

} // namespace tesk
