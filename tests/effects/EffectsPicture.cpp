// Renders the effects panel with a playing song's spectrum to PNG files, for a person to look
// at: tesk_effects_picture [folder]. Writes effects-panel@1.png and effects-panel@2.png, and
// the same with the pan slider focused (effects-panel-pan-focused@N.png).
#include "audio/TeskEffectsSettings.h"
#include "effects/LiveSpectrum.h"
#include "effects/TeskEffectsViewController.h"
#include "effects/TeskPanSlider.h"

#include <QApplication>
#include <QImage>
#include <QPainter>

using namespace tesk;

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("/tmp");

    TeskEffectsSettings settings;
    auto bass = TeskEqualizerSettings::isolateBassPreset();
    QList<double> bands = bass->bands();
    bands[1] = 6.0;
    bands[2] = 3.0;
    bass->setBands(bands);
    settings.setEqualizerSettings(bass.get());
    settings.setEqualizerEnabled(true);
    settings.setVocalReductionEnabled(true);
    settings.setPanningEnabled(true);
    settings.setPanAmount(0.7);

    TeskEffectsViewController panel;
    panel.setRepresentedObject(&settings);
    panel.resize(1100, 170);
    const test::LiveSpectrum spectrum = test::liveSpectrum();
    panel.setFrequencyTable(spectrum.frequencyTable);
    panel.setFrequencyResponse(spectrum.left, 0);
    panel.setFrequencyResponse(spectrum.right, 1);
    panel.show();
    QCoreApplication::processEvents();
    const auto save = [&](const QString& name) {
        for (qreal ratio : {1.0, 2.0}) {
            QImage image((panel.size() * ratio), QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(ratio);
            image.fill(panel.palette().window().color());
            panel.render(&image);
            image.save(QStringLiteral("%1/%2@%3.png").arg(folder, name).arg(int(ratio)));
        }
    };
    save(QStringLiteral("effects-panel"));
    // Again with the pan slider reached by Tab: its focus ring.
    panel.activateWindow();
    QCoreApplication::processEvents();
    if (auto* pan = panel.findChild<TeskPanSlider*>()) {
        pan->setFocus(Qt::TabFocusReason);
        QCoreApplication::processEvents();
        save(QStringLiteral("effects-panel-pan-focused"));
    }
    return 0;
}
