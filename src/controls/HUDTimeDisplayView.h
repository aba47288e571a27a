#pragma once

#include "controls/SBindingView.h"
#include "widgets/Glow.h"

namespace tesk {

/// The play position as minutes, seconds and milliseconds ("01:23.456"), drawn glyph by glyph
/// from the digit pictures, with "min" and "sec" under them. Binding: "currentFrame" (read).
/// Main thread.
class HUDTimeDisplayView : public SBindingView {
    Q_OBJECT
public:
    explicit HUDTimeDisplayView(QWidget* parent = nullptr);

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    qint64 currentFrame() const { return mCurrentFrame; }
    void setCurrentFrame(qint64 frame);
    QString currentTimeString() const { return mCurrentTimeString; }

    /// A glyph's advance and left bearing, in logical pixels.
    struct GlyphMetrics {
        double width;
        double inset;
    };
    static GlyphMetrics metricsFor(QChar glyph);
    /// Where each glyph of `text` is drawn: the pen starts at minus the first glyph's inset.
    static std::vector<double> glyphPositions(const QString& text);
    /// Where the "sec" caption goes: under the seconds, however many digits the minutes take.
    static double secondsCaptionX(const QString& text);

    /// The glow of the first digit reaches left of where the glyphs start: the view keeps that
    /// much room before them, so that its glow fades out rather than being cut.
    static constexpr int kLeftRoom = Glow::kMargin;
    QSize sizeHint() const override { return {200 + kLeftRoom, 50}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    qint64 mCurrentFrame = 0;
    QString mCurrentTimeString;
};

} // namespace tesk
