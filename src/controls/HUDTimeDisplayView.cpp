#include "controls/HUDTimeDisplayView.h"

#include "controls/GlowText.h"
#include "controls/TransportAccessibility.h"
#include "controls/TransportRules.h"
#include "widgets/DevicePixels.h"
#include "widgets/Glow.h"
#include "widgets/NamedImage.h"

#include <QPainter>

namespace tesk {

namespace {
constexpr double kGlyphTop = 6;

QString glyphImageName(QChar glyph) {
    if (glyph == QLatin1Char(':'))
        return QStringLiteral("hud_digit_colon");
    if (glyph == QLatin1Char('.'))
        return QStringLiteral("hud_digit_period");
    return QStringLiteral("hud_digit_%1").arg(glyph);
}
} // namespace

HUDTimeDisplayView::HUDTimeDisplayView(QWidget* parent)
    : SBindingView(parent) {
    installTransportAccessibility();
    setAccessibleName(tr("Time"));
    setCurrentFrame(0);
}

QStringList HUDTimeDisplayView::exposedBindings() const {
    return SBindingView::exposedBindings() + QStringList{QStringLiteral("currentFrame")};
}

void HUDTimeDisplayView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                        const QString& binding) {
    if (binding != QLatin1String("currentFrame"))
        return;
    // Read as an unsigned 32-bit number: positions beyond 2^32 frames are not shown.
    const auto frame = quint32(object->property(keyPath.toUtf8().constData()).toLongLong());
    setCurrentFrame(qint64(frame));
}

void HUDTimeDisplayView::setCurrentFrame(qint64 frame) {
    mCurrentFrame = frame;
    const QString text =
        TransportRules::timeString(TransportRules::millisecondsForFrame(mCurrentFrame));
    if (text == mCurrentTimeString)
        return;
    mCurrentTimeString = text;
    // To the second: said fifteen times a second while playing, it would drown every other
    // announcement.
    const QString spoken = text.section(QLatin1Char('.'), 0, 0);
    if (spoken != accessibleDescription())
        setAccessibleDescription(spoken);
    update();
}

HUDTimeDisplayView::GlyphMetrics HUDTimeDisplayView::metricsFor(QChar glyph) {
    if (glyph == QLatin1Char(':'))
        return {10, 12};
    if (glyph == QLatin1Char('.'))
        return {11, 12};
    return {21, 4};
}

std::vector<double> HUDTimeDisplayView::glyphPositions(const QString& text) {
    std::vector<double> positions;
    if (text.isEmpty())
        return positions;
    double pen = -metricsFor(text.front()).inset;
    for (QChar glyph : text) {
        positions.push_back(pen);
        pen += metricsFor(glyph).width;
    }
    return positions;
}

double HUDTimeDisplayView::secondsCaptionX(const QString& text) {
    // 57 points with two digits of minutes, moved as the seconds' first digit moves.
    static const double usual = glyphPositions(QStringLiteral("00:00.000"))[3];
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0 || colon + 1 >= text.size())
        return 57.0;
    return 57.0 + glyphPositions(text)[std::size_t(colon + 1)] - usual;
}

void HUDTimeDisplayView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.translate(kLeftRoom, 0);
    const qreal ratio = devicePixelRatioOf(painter);
    QFont caption = font();
    caption.setPixelSize(10);
    painter.drawPixmap(QPointF(4, 36), GlowText::picture(tr("min"), caption, ratio));
    painter.drawPixmap(QPointF(secondsCaptionX(mCurrentTimeString), 36),
                       GlowText::picture(tr("sec"), caption, ratio));
    const auto positions = glyphPositions(mCurrentTimeString);
    for (qsizetype i = 0; i < mCurrentTimeString.size(); ++i)
        painter.drawPixmap(
            QPointF(positions[std::size_t(i)], kGlyphTop) - QPointF(Glow::kMargin, Glow::kMargin),
            Glow::glowingPicture(NamedImage::named(glyphImageName(mCurrentTimeString[i])), ratio));
}

} // namespace tesk
