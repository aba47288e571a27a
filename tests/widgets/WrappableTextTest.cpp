#include "widgets/WrappableText.h"

#include <QLabel>
#include <QTextBoundaryFinder>
#include <gtest/gtest.h>

using namespace tesk;

namespace {

constexpr QChar kZeroWidthSpace(0x200B);

QString repeated(const QString& piece, int times) {
    QString text;
    for (int i = 0; i < times; ++i)
        text += piece;
    return text;
}

} // namespace

TEST(WrappableText, BreaksOnlyWordsTooLongForALineAndOnlyBetweenCharacters) {
    const QString longName = repeated(QStringLiteral("practice_"), 8) + QStringLiteral(".mp3");
    const struct {
        const char* name;
        QString text;
        qsizetype breaks;
    } cases[] = {
        {"short words", QStringLiteral("The song “Intro.mp3” could not be found."), 0},
        {"a word of thirty characters", QStringLiteral("a ") + repeated("x", 30), 0},
        {"a long name, quoted", QStringLiteral("Save “%1”?\nSure?").arg(longName), 78},
        {"accents made of two characters", repeated(QStringLiteral("e\u0301"), 20), 19},
        {"characters outside the basic plane", repeated(QStringLiteral("\U0001D11E"), 20), 19},
    };
    for (const auto& [name, text, breaks] : cases) {
        SCOPED_TRACE(name);
        const QString wrappable = wrappableText(text);
        EXPECT_EQ(QString(wrappable).remove(kZeroWidthSpace), text) << "nothing else changes";
        EXPECT_EQ(wrappable.count(kZeroWidthSpace), breaks) << "one between each two characters";
        QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, wrappable);
        for (qsizetype i = wrappable.indexOf(kZeroWidthSpace); i >= 0;
             i = wrappable.indexOf(kZeroWidthSpace, i + 1)) {
            characters.setPosition(i);
            EXPECT_TRUE(characters.isAtBoundary()) << "no character split at " << i;
        }
    }
}

TEST(WrappableText, LetsAWrappingLabelFitANameLongerThanItsWidth) {
    const QString text = QStringLiteral("The changes to “%1” were not saved.")
                             .arg(repeated(QStringLiteral("verylongsongname"), 12));
    QLabel whole(text);
    QLabel wrappable(wrappableText(text));
    for (QLabel* label : {&whole, &wrappable}) {
        label->setWordWrap(true);
        label->setFixedWidth(300);
        label->adjustSize();
    }
    const int lineHeight = whole.fontMetrics().height();
    EXPECT_GT(whole.minimumSizeHint().width(), 300) << "the name alone is wider than the label";
    EXPECT_LE(wrappable.minimumSizeHint().width(), 300);
    EXPECT_GE(wrappable.heightForWidth(300), 5 * lineHeight) << "the name runs over lines";
}
