#include "waveform/MarkerItem.h"

#include "diagnostics/TeskAssert.h"
#include "widgets/NamedImage.h"

#include <QCoreApplication>

namespace tesk {

namespace {
constexpr const char* kNames[kMarkerKindCount] = {"Generic", "Chorus", "Verse", "Bridge"};
}

QString bindingNameForType(std::uint32_t kind) {
    static const char* const bindings[kMarkerKindCount] = {"genericMarkers", "chorusMarkers",
                                                           "verseMarkers", "bridgeMarkers"};
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return QString::fromLatin1(bindings[kind]);
}

QString charForMarkerType(std::uint32_t kind) {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    static const char* const letters[kMarkerKindCount] = {
        QT_TRANSLATE_NOOP("WaveformView", "M"), QT_TRANSLATE_NOOP("WaveformView", "C"),
        QT_TRANSLATE_NOOP("WaveformView", "V"), QT_TRANSLATE_NOOP("WaveformView", "B")};
    return QCoreApplication::translate("WaveformView", letters[kind]);
}

const NamedImage& markerImageForType(std::uint32_t kind) {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return NamedImage::named(QString::fromLatin1(kNames[kind]) + "MarkerN");
}

const NamedImage& pressedMarkerImageForType(std::uint32_t kind) {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return NamedImage::named(QString::fromLatin1(kNames[kind]) + "MarkerP");
}

} // namespace tesk
