#pragma once

#include <QString>

namespace tesk {

/// Text for a label that wraps, with a zero-width space between the characters of each word too
/// long for a line (a long file name with no spaces in it), so the label can break the word
/// instead of cutting it off at its edge. Shorter words, and what a character is made of (an
/// accent, a pair of surrogates), are left whole. For showing only: never for a file's name
/// itself, the terminal or what is copied. Any thread.
QString wrappableText(const QString& text);

} // namespace tesk
