#pragma once

#include <functional>

namespace tesk {

/// Which item a preset menu selects for the current settings: every preset is compared, the
/// last equal one wins, and none gives "Manual" (item 0). Presets sit at item 2 on, after a
/// separator. Any thread.
inline int presetMenuIndex(int presetCount, const std::function<bool(int preset)>& equalsCurrent) {
    int matched = -1;
    for (int preset = 0; preset < presetCount; ++preset)
        if (equalsCurrent(preset))
            matched = preset; // no early exit: the last equal one wins
    return matched < 0 ? 0 : matched + 2;
}

} // namespace tesk
