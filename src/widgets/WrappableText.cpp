#include "widgets/WrappableText.h"

#include <QTextBoundaryFinder>

namespace tesk {

namespace {

/// Longer than this, a word may not fit a dialog's line.
constexpr qsizetype kLongestWholeWord = 30;
constexpr QChar kZeroWidthSpace(0x200B);

QString breakableWord(QStringView word) {
    QString broken;
    broken.reserve(word.size() * 2);
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, word.toString());
    qsizetype from = 0;
    for (qsizetype to = characters.toNextBoundary(); to > 0; to = characters.toNextBoundary()) {
        if (from > 0)
            broken.append(kZeroWidthSpace);
        broken.append(word.mid(from, to - from));
        from = to;
    }
    return broken;
}

} // namespace

QString wrappableText(const QString& text) {
    QString wrappable;
    qsizetype wordStart = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && !text.at(i).isSpace())
            continue;
        const QStringView word = QStringView(text).mid(wordStart, i - wordStart);
        wrappable.append(word.size() > kLongestWholeWord ? breakableWord(word) : word.toString());
        if (i < text.size())
            wrappable.append(text.at(i));
        wordStart = i + 1;
    }
    return wrappable;
}

} // namespace tesk
