#include "app/DurationFormatter.h"
#include "app/FeedbackMessage.h"
#include "app/RenderProgress.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "support/AudioFiles.h"

using namespace tesk;

TEST(DurationFormatter, WritesEachStyleAsTeskAlwaysHas) {
    const struct {
        int style;
        int seconds;
        const char* text;
    } cases[] = {
        {0, 3725, "1h2m5s"},
        {0, 59, "59s"},
        {0, 3600, "1h0s"},
        {0, 0, "0s"},
        {2, 3725, "62′5″"},
        {2, 7200, "120′0″"},
        {1, 90, "1 minute seconds"},
        {1, 60, "1 minuteless than a second"},
        {1, 0, "less than a second"},
        {1, 7322, "2 hours2 minutes seconds"},
        {1, 3601, "1 hour second"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.seconds);
        EXPECT_EQ(DurationFormatter::durationToString(c.seconds, c.style).toStdString(), c.text);
    }
    EXPECT_EQ(DurationFormatter::durationToString(3725), "1h2m5s");
}

TEST(FeedbackMessage, TheMailtoURLStaysValidWithSpacesAndParentheses) {
    const QUrl url = FeedbackMessage::mailtoURL("1.0 (beta 2)", "Debian GNU/Linux 12 (bookworm)");
    ASSERT_TRUE(url.isValid());
    EXPECT_EQ(url.scheme(), "mailto");
    EXPECT_EQ(url.path(), FeedbackMessage::SupportAddress);
    const QString encoded = QString::fromLatin1(url.toEncoded());
    EXPECT_FALSE(encoded.contains(' '));
    EXPECT_FALSE(encoded.contains('('));
    // Decoded, the parts say exactly what the user will see in the mail.
    const QUrlQuery query(url);
    EXPECT_EQ(query.queryItemValue("SUBJECT", QUrl::FullyDecoded),
              "Tesk Feedback: (Enter title here)");
    EXPECT_EQ(query.queryItemValue("BODY", QUrl::FullyDecoded),
              "Here's how I feel about Tesk:\n\n\n--\n(I'm using Tesk version 1.0 (beta 2) with "
              "Debian GNU/Linux 12 (bookworm).)\n");
}

TEST(FeedbackMessage, TheSystemIsNamedByTheOsReleasePrettyName) {
    QTemporaryDir dir;
    const struct {
        const char* contents;
        const char* name;
    } cases[] = {
        {"NAME=\"Debian\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n",
         "Debian GNU/Linux 12 (bookworm)"},
        {"PRETTY_NAME=Fedora\n", "Fedora"},
        {"NAME=Nothing\n", "Linux"},
    };
    for (const auto& c : cases) {
        const QString path = dir.filePath("os-release");
        ASSERT_TRUE(test::writeFile(path, c.contents));
        EXPECT_EQ(FeedbackMessage::systemVersion(path), c.name);
    }
    EXPECT_EQ(FeedbackMessage::systemVersion(dir.filePath("missing")), "Linux");
}

TEST(RenderProgress, TheBarFitsATerminalNarrowerThanIt) {
    // A wrapped bar is not drawn over by the next: each redraw would leave a line behind.
    for (const unsigned short columns : {40, 20, 200}) {
        SCOPED_TRACE(columns);
        int terminal = -1;
        int side = -1;
        winsize size = {};
        size.ws_col = columns;
        size.ws_row = 24;
        ASSERT_EQ(::openpty(&terminal, &side, nullptr, nullptr, &size), 0);
        std::FILE* stream = ::fdopen(side, "w");
        ASSERT_NE(stream, nullptr);
        {
            RenderProgress progress(RenderProgress::Style::Bar, stream);
            progress.showExport(0.25);
            progress.showExport(0.5);
        }
        std::fclose(stream);
        std::string written;
        char buffer[4096];
        ::fcntl(terminal, F_SETFL, O_NONBLOCK);
        for (ssize_t got; (got = ::read(terminal, buffer, sizeof buffer)) > 0;)
            written.append(buffer, std::size_t(got));
        ::close(terminal);
        const QString text = QString::fromLocal8Bit(written).remove("\x1b[K");
        const QStringList drawn = text.split(QRegularExpression("[\r\n]"), Qt::SkipEmptyParts);
        ASSERT_GE(drawn.size(), 2) << written;
        for (const QString& line : drawn)
            EXPECT_LT(line.size(), int(columns)) << line.toStdString();
        EXPECT_TRUE(drawn.constLast().startsWith("[###")) << drawn.constLast().toStdString();
    }
}
