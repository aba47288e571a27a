#pragma once

// Speech for tests that need a voice: synthesised on the spot by espeak-ng, so no recording
// is kept anywhere in the tree.

#include <string>
#include <vector>

namespace tesk::test {

/// `text` spoken by espeak-ng's default voice, mono, converted to 44100 Hz float by ffmpeg.
/// Empty if either program is missing or fails. `text` must not contain a single quote.
std::vector<float> speech(const std::string& text);

} // namespace tesk::test
