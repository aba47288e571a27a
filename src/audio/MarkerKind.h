#pragma once

#include <cstdint>

namespace tesk {

/// The four kinds of marker, in the order they are kept everywhere: documents, views, files.
enum class MarkerKind : std::uint32_t { Generic = 0, Chorus = 1, Verse = 2, Bridge = 3 };
inline constexpr std::uint32_t kMarkerKindCount = 4;

} // namespace tesk
