#pragma once

#include <QPropertyAnimation>
#include <QTimer>
#include <QWidget>

namespace tesk {

/// The small bubble over a knob that shows its value while it changes: a frameless,
/// translucent window that never takes focus and fades out when hidden. Main thread.
class CalloutWindow : public QWidget {
    Q_OBJECT
public:
    explicit CalloutWindow(QWidget* owner);

    /// Puts the bubble's arrow tip at `tip` (global coordinates) with `text`, fully shown.
    void showAt(const QPoint& tip, const QString& text);
    /// Moves it along, while it shows.
    void follow(const QPoint& tip, const QString& text);
    /// Fades it out now, or 0.5 s after the last call of a run (stepping keys).
    void fadeOut();
    void fadeOutLater();
    QString text() const { return mText; }
    /// The label's font for `text`: 12-pixel bold `base`, made smaller where the text would
    /// not fit `width` points between the bubble's round corners ("-23.17" in a wide face).
    static QFont labelFont(const QFont& base, const QString& text, qreal width);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    /// Shapes the window like the bubble, at the ratio of the screen it is on.
    void takeBubbleShape();

    QString mText;
    qreal mShapeRatio = 0.0;
    QPropertyAnimation mFade;
    QTimer mDelayedFade;
};

} // namespace tesk
