#include "effects/TeskEffectsViewController.h"

#include "audio/TeskEffectsSettings.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "effects/PresetMenuRule.h"
#include "effects/SpectrumStrip.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QStackedLayout>
#include <QVBoxLayout>
#include <cmath>

namespace tesk {

namespace {
constexpr int kGainStepsPerDb = 10;
constexpr int kGainRangeDb = 20;
const char* const kBandNames[] = {"31", "63", "125", "250", "500", "1k", "2k", "4k", "8k", "16k"};

QComboBox* presetMenu(const QStringList& presets, QWidget* parent) {
    auto* menu = new QComboBox(parent);
    menu->addItem(QObject::tr("Manual"));
    menu->insertSeparator(1);
    menu->addItems(presets);
    return menu;
}

/// The live spectrum with `controls` laid over it.
QWidget* overSpectrum(SpectrumStrip* spectrum, QWidget* controls, QWidget* parent) {
    auto* stack = new QWidget(parent);
    auto* layers = new QStackedLayout(stack);
    layers->setStackingMode(QStackedLayout::StackAll);
    layers->addWidget(controls);
    layers->addWidget(spectrum);
    controls->raise();
    return stack;
}
} // namespace

TeskEffectsViewController::TeskEffectsViewController(QWidget* parent)
    : QWidget(parent) {
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::flatPreset());
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::isolateBassPreset());
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::isolateMidsPreset());
    mVocalReductionPresetsArray.push_back(TeskVocalReductionEffectSettings::maleVocalPreset());
    mVocalReductionPresetsArray.push_back(TeskVocalReductionEffectSettings::femaleVocalPreset());

    setObjectName(QStringLiteral("effectsPanel"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 8, 12, 10);
    row->setSpacing(18);
    buildEqualizer(row);
    buildVocalReduction(row);
    buildPan(row);
    setEnabled(false);
}

TeskEffectsViewController::~TeskEffectsViewController() = default;

void TeskEffectsViewController::buildEqualizer(QHBoxLayout* row) {
    auto* column = new QVBoxLayout;
    auto* header = new QHBoxLayout;
    mEqualizerOn = new QCheckBox(tr("Equalizer"), this);
    mEqualizerPresets = presetMenu({tr("Flat"), tr("Isolate Bass"), tr("Isolate Mids")}, this);
    mEqualizerPresets->setAccessibleName(tr("Equalizer preset"));
    header->addWidget(mEqualizerOn);
    header->addWidget(mEqualizerPresets);
    header->addStretch(1);
    column->addLayout(header);

    auto* bands = new QWidget(this);
    auto* grid = new QGridLayout(bands);
    grid->setContentsMargins(4, 4, 4, 0);
    for (int band = 0; band < kBandCount; ++band) {
        auto* slider = new QSlider(Qt::Vertical, bands);
        slider->setRange(-kGainRangeDb * kGainStepsPerDb, kGainRangeDb * kGainStepsPerDb);
        slider->setMinimumHeight(96);
        auto* label = new QLabel(QString::fromLatin1(kBandNames[band]), bands);
        label->setStyleSheet(QStringLiteral("color: rgba(217, 238, 254, 180); font-size: 9px;"));
        grid->addWidget(slider, 0, band, Qt::AlignHCenter);
        grid->addWidget(label, 1, band, Qt::AlignHCenter);
        mBands[std::size_t(band)] = slider;
        // The effect comes on before the first value changes.
        connect(slider, &QSlider::sliderPressed, this, [this] { effectViewDidBeginEditing(true); });
        connect(slider, &QSlider::valueChanged, this, [this, band](int value) {
            if (mShowing || !mSettings)
                return;
            effectViewDidBeginEditing(true);
            QList<double> gains = mSettings->equalizerSettings()->bands();
            gains[band] = double(value) / kGainStepsPerDb;
            mSettings->equalizerSettings()->setBands(gains);
        });
    }
    mEqualizerSpectrum = new SpectrumStrip(this);
    column->addWidget(overSpectrum(mEqualizerSpectrum, bands, this), 1);
    row->addLayout(column, 3);

    connect(mEqualizerOn, &QCheckBox::toggled, this, [this](bool on) {
        if (!mShowing && mSettings)
            mSettings->setEqualizerEnabled(on);
    });
    connect(mEqualizerPresets, &QComboBox::activated, this,
            &TeskEffectsViewController::equalizerPresetChanged);
}

void TeskEffectsViewController::buildVocalReduction(QHBoxLayout* row) {
    auto* column = new QVBoxLayout;
    auto* header = new QHBoxLayout;
    mVocalOn = new QCheckBox(tr("Vocal Reduction"), this);
    mVocalPresets = presetMenu({tr("Male Vocals"), tr("Female Vocals")}, this);
    mVocalPresets->setAccessibleName(tr("Vocal reduction preset"));
    header->addWidget(mVocalOn);
    header->addWidget(mVocalPresets);
    header->addStretch(1);
    column->addLayout(header);

    auto* edges = new QWidget(this);
    auto* edgeRow = new QHBoxLayout(edges);
    mLowEdge = new QSpinBox(edges);
    mHighEdge = new QSpinBox(edges);
    for (QSpinBox* box : {mLowEdge, mHighEdge}) {
        box->setRange(20, 20000);
        box->setSuffix(QStringLiteral(" Hz"));
        box->setKeyboardTracking(false);
        edgeRow->addWidget(box);
    }
    mLowEdge->setAccessibleName(tr("Vocal band low edge"));
    mHighEdge->setAccessibleName(tr("Vocal band high edge"));
    mVocalSpectrum = new SpectrumStrip(this);
    column->addWidget(overSpectrum(mVocalSpectrum, edges, this), 1);
    row->addLayout(column, 2);

    const auto edgeChanged = [this] {
        if (mShowing || !mSettings)
            return;
        effectViewDidBeginEditing(false);
        TeskVocalReductionEffectSettings* band = mSettings->vocalReductionEffectSettings();
        band->setLowFrequency(std::min(mLowEdge->value(), mHighEdge->value()));
        band->setHighFrequency(std::max(mLowEdge->value(), mHighEdge->value()));
    };
    connect(mLowEdge, &QSpinBox::valueChanged, this, edgeChanged);
    connect(mHighEdge, &QSpinBox::valueChanged, this, edgeChanged);
    connect(mVocalOn, &QCheckBox::toggled, this, [this](bool on) {
        if (!mShowing && mSettings)
            mSettings->setVocalReductionEnabled(on);
    });
    connect(mVocalPresets, &QComboBox::activated, this,
            &TeskEffectsViewController::vocalReductionPresetChanged);
}

void TeskEffectsViewController::buildPan(QHBoxLayout* row) {
    auto* column = new QVBoxLayout;
    mPanOn = new QCheckBox(tr("Pan"), this);
    mOutOfPhase = new QCheckBox(tr("Out of phase"), this);
    column->addWidget(mPanOn);
    column->addWidget(mOutOfPhase);
    auto* sliderRow = new QHBoxLayout;
    sliderRow->addWidget(new QLabel(QStringLiteral("L"), this));
    mPan = new QSlider(Qt::Horizontal, this);
    mPan->setRange(0, 1000);
    mPan->setAccessibleName(tr("Pan"));
    sliderRow->addWidget(mPan, 1);
    sliderRow->addWidget(new QLabel(QStringLiteral("R"), this));
    column->addLayout(sliderRow);
    column->addStretch(1);
    row->addLayout(column, 1);

    connect(mPanOn, &QCheckBox::toggled, this, [this](bool on) {
        if (!mShowing && mSettings)
            mSettings->setPanningEnabled(on);
    });
    connect(mOutOfPhase, &QCheckBox::toggled, this, [this](bool on) {
        if (!mShowing && mSettings)
            mSettings->setOutOfPhase(on);
    });
    connect(mPan, &QSlider::valueChanged, this, [this](int value) {
        if (mShowing || !mSettings)
            return;
        // Within 0.05 of the middle the pan rests at the centre.
        double amount = double(value) / 1000.0;
        if (std::fabs(amount - 0.5) < 0.05)
            amount = 0.5;
        mSettings->setPanningEnabled(true);
        mSettings->setPanAmount(amount);
    });
}

void TeskEffectsViewController::setRepresentedObject(TeskEffectsSettings* settings) {
    for (const auto& connection : mConnections)
        disconnect(connection);
    mConnections.clear();
    mSettings = settings;
    mManualEqualizerSettings.reset();
    mManualVocalReductionSettings.reset();
    setEnabled(settings != nullptr);
    if (!settings)
        return;
    connectSettings();
    showSwitches();
    showEqualizer();
    showVocalReduction();
}

void TeskEffectsViewController::connectSettings() {
    TeskEffectsSettings* settings = mSettings;
    const auto reconnectBands = [this] {
        // The settings objects are replaced by presets: follow the new ones.
        connectSettings();
        showEqualizer();
        showVocalReduction();
    };
    for (const auto& connection : mConnections)
        disconnect(connection);
    mConnections = {
        connect(settings, &TeskEffectsSettings::equalizerEnabledChanged, this,
                &TeskEffectsViewController::showSwitches),
        connect(settings, &TeskEffectsSettings::vocalReductionEnabledChanged, this,
                &TeskEffectsViewController::showSwitches),
        connect(settings, &TeskEffectsSettings::panningEnabledChanged, this,
                &TeskEffectsViewController::showSwitches),
        connect(settings, &TeskEffectsSettings::outOfPhaseChanged, this,
                &TeskEffectsViewController::showSwitches),
        connect(settings, &TeskEffectsSettings::panAmountChanged, this,
                &TeskEffectsViewController::showSwitches),
        connect(settings, &TeskEffectsSettings::equalizerSettingsChanged, this, reconnectBands),
        connect(settings, &TeskEffectsSettings::vocalReductionEffectSettingsChanged, this,
                reconnectBands),
        connect(settings->equalizerSettings(), &TeskEqualizerSettings::bandsChanged, this,
                &TeskEffectsViewController::showEqualizer),
        connect(settings->vocalReductionEffectSettings(),
                &TeskVocalReductionEffectSettings::lowFrequencyChanged, this,
                &TeskEffectsViewController::showVocalReduction),
        connect(settings->vocalReductionEffectSettings(),
                &TeskVocalReductionEffectSettings::highFrequencyChanged, this,
                &TeskEffectsViewController::showVocalReduction),
    };
}

void TeskEffectsViewController::showSwitches() {
    if (!mSettings)
        return;
    mShowing = true;
    mEqualizerOn->setChecked(mSettings->isEqualizerEnabled());
    mVocalOn->setChecked(mSettings->isVocalReductionEnabled());
    mPanOn->setChecked(mSettings->isPanningEnabled());
    mOutOfPhase->setChecked(mSettings->isOutOfPhase());
    mPan->setValue(int(std::lround(mSettings->panAmount() * 1000.0)));
    mEqualizerSpectrum->setEffectEnabled(mSettings->isEqualizerEnabled());
    mVocalSpectrum->setEffectEnabled(mSettings->isVocalReductionEnabled());
    mShowing = false;
}

void TeskEffectsViewController::showEqualizer() {
    if (!mSettings)
        return;
    const TeskEqualizerSettings* current = mSettings->equalizerSettings();
    mShowing = true;
    const QList<double> gains = current->bands();
    for (int band = 0; band < kBandCount && band < gains.size(); ++band)
        mBands[std::size_t(band)]->setValue(int(std::lround(gains[band] * kGainStepsPerDb)));
    const int index = presetMenuIndex(int(mEqualizerPresetsArray.size()), [&](int preset) {
        return mEqualizerPresetsArray[std::size_t(preset)]->isEqual(*current);
    });
    mEqualizerPresets->setCurrentIndex(index);
    if (index == 0)
        mManualEqualizerSettings = current->copy(); // "Manual" brings these back
    mShowing = false;
}

void TeskEffectsViewController::showVocalReduction() {
    if (!mSettings)
        return;
    const TeskVocalReductionEffectSettings* current = mSettings->vocalReductionEffectSettings();
    mShowing = true;
    mLowEdge->setValue(int(std::lround(current->lowFrequency())));
    mHighEdge->setValue(int(std::lround(current->highFrequency())));
    const int index = presetMenuIndex(int(mVocalReductionPresetsArray.size()), [&](int preset) {
        return mVocalReductionPresetsArray[std::size_t(preset)]->isEqual(*current);
    });
    mVocalPresets->setCurrentIndex(index);
    if (index == 0)
        mManualVocalReductionSettings = current->copy();
    mShowing = false;
}

void TeskEffectsViewController::equalizerPresetChanged(int index) {
    if (!mSettings)
        return;
    if (index == 0) {
        if (!mManualEqualizerSettings)
            mManualEqualizerSettings = mSettings->equalizerSettings()->copy();
        auto manual = mManualEqualizerSettings->copy();
        mSettings->setEqualizerSettings(manual.get());
    } else if (index >= 2 && index - 2 < int(mEqualizerPresetsArray.size())) {
        mSettings->setEqualizerSettings(mEqualizerPresetsArray[std::size_t(index - 2)].get());
    } else {
        return;
    }
    mSettings->setEqualizerEnabled(true); // any preset, even the one shown
}

void TeskEffectsViewController::vocalReductionPresetChanged(int index) {
    if (!mSettings)
        return;
    if (index == 0) {
        if (!mManualVocalReductionSettings)
            mManualVocalReductionSettings = mSettings->vocalReductionEffectSettings()->copy();
        auto manual = mManualVocalReductionSettings->copy();
        mSettings->setVocalReductionEffectSettings(manual.get());
    } else if (index >= 2 && index - 2 < int(mVocalReductionPresetsArray.size())) {
        mSettings->setVocalReductionEffectSettings(
            mVocalReductionPresetsArray[std::size_t(index - 2)].get());
    } else {
        return;
    }
    mSettings->setVocalReductionEnabled(true);
}

void TeskEffectsViewController::effectViewDidBeginEditing(bool equalizer) {
    if (!mSettings)
        return;
    if (equalizer && !mSettings->isEqualizerEnabled())
        mSettings->setEqualizerEnabled(true);
    if (!equalizer && !mSettings->isVocalReductionEnabled())
        mSettings->setVocalReductionEnabled(true);
}

void TeskEffectsViewController::setFrequencyTable(std::vector<float> table) {
    mEqualizerSpectrum->setFrequencyTable(table);
    mVocalSpectrum->setFrequencyTable(std::move(table));
}

void TeskEffectsViewController::setFrequencyResponse(std::vector<float> spectrum,
                                                     unsigned channel) {
    mEqualizerSpectrum->setSpectrum(spectrum, channel);
    mVocalSpectrum->setSpectrum(std::move(spectrum), channel);
}

void TeskEffectsViewController::refreshFrequencyDisplays() {
    mEqualizerSpectrum->update();
    mVocalSpectrum->update();
}

} // namespace tesk
