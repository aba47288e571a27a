#include "effects/TeskEffectsViewController.h"

#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "effects/EffectsAccessibility.h"
#include "effects/PresetMenuRule.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskPanningSpectrumEffectView.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "widgets/TeskLook.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tesk {

namespace {
// Observation contexts: their addresses tell the two settings apart.
const char kEqualizerSettingsContext[] = "effectsViewController.equalizerSettings";
const char kVocalReductionSettingsContext[] = "effectsViewController.vocalReductionEffectSettings";

void fillPresetMenu(QComboBox* menu, const QStringList& presets) {
    menu->clear();
    menu->addItem(QObject::tr("Manual"));
    menu->insertSeparator(1);
    menu->addItems(presets);
}

/// Names a preset menu for screen readers. On Linux a menu's own name is the preset it shows,
/// and what it is for comes from a label: the switch beside it is its label to the eye, and a
/// label that is never shown is its label to a screen reader.
void nameForScreenReaders(QComboBox* menu, const QString& name) {
    menu->setAccessibleName(name);
    menu->setAccessibleDescription(name);
    auto* label = new QLabel(name, menu->parentWidget());
    label->setBuddy(menu);
    label->hide();
}

} // namespace

TeskEffectsViewController::TeskEffectsViewController(QWidget* parent)
    : QWidget(parent) {
    installEffectsAccessibility();
    setObjectName(QStringLiteral("effectsPanel"));
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::flatPreset());
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::isolateBassPreset());
    mEqualizerPresetsArray.push_back(TeskEqualizerSettings::isolateMidsPreset());
    mVocalReductionPresetsArray.push_back(TeskVocalReductionEffectSettings::maleVocalPreset());
    mVocalReductionPresetsArray.push_back(TeskVocalReductionEffectSettings::femaleVocalPreset());
    buildPanel();
    setEnabled(false);
}

TeskEffectsViewController::~TeskEffectsViewController() {
    setRepresentedObject(nullptr);
}

QSize TeskEffectsViewController::sizeHint() const {
    return {look::minimumWindowWidth, look::effectsPanelHeight};
}

void TeskEffectsViewController::buildPanel() {
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(10, 6, 10, 8);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(4);

    mEqualizerSwitch = new QCheckBox(tr("Equalizer"), this);
    mEqualizerPresetsPopUp = new QComboBox(this);
    fillPresetMenu(mEqualizerPresetsPopUp, {tr("Flat"), tr("Isolate Bass"), tr("Isolate Mids")});
    nameForScreenReaders(mEqualizerPresetsPopUp, tr("Equalizer preset"));
    mVocalReductionSwitch = new QCheckBox(tr("Vocal Reduction"), this);
    mVocalReductionPresetsPopUp = new QComboBox(this);
    fillPresetMenu(mVocalReductionPresetsPopUp, {tr("Male Vocals"), tr("Female Vocals")});
    nameForScreenReaders(mVocalReductionPresetsPopUp, tr("Vocal reduction preset"));
    mPanningSwitch = new QCheckBox(tr("Pan"), this);
    mOutOfPhaseSwitch = new QCheckBox(tr("Out of Phase"), this);
    // Reached with Tab, the panel's controls take the keys; picked with the mouse, they leave
    // the keyboard where it was: Space still plays and the arrows still change speed.
    for (QWidget* control : std::initializer_list<QWidget*>{
             mEqualizerSwitch, mEqualizerPresetsPopUp, mVocalReductionSwitch,
             mVocalReductionPresetsPopUp, mPanningSwitch, mOutOfPhaseSwitch})
        control->setFocusPolicy(Qt::TabFocus);

    const auto header = [this](QWidget* first, QWidget* second) {
        auto* row = new QHBoxLayout;
        row->setSpacing(8);
        row->addWidget(first);
        row->addWidget(second);
        row->addStretch(1);
        return row;
    };
    grid->addLayout(header(mEqualizerSwitch, mEqualizerPresetsPopUp), 0, 0);
    grid->addLayout(header(mVocalReductionSwitch, mVocalReductionPresetsPopUp), 0, 1);
    grid->addLayout(header(mPanningSwitch, mOutOfPhaseSwitch), 0, 2);

    mEQSettingsView = new TeskEQSettingsView(this);
    mVocalRemovalSettingsView = new TeskVocalRemovalSettingsView(this);
    mPanSpectrumView = new TeskPanningSpectrumEffectView(this);
    mPanSlider = new TeskPanSlider(this);
    mEQSettingsView->setDelegate(this);
    mVocalRemovalSettingsView->setDelegate(this);
    grid->addWidget(mEQSettingsView, 1, 0);
    grid->addWidget(mVocalRemovalSettingsView, 1, 1);
    auto* pan = new QVBoxLayout;
    pan->setSpacing(4);
    pan->addWidget(mPanSpectrumView, 1);
    pan->addWidget(mPanSlider);
    grid->addLayout(pan, 1, 2);
    // Tab goes through each effect in turn: its switch, its presets, its editor.
    const std::initializer_list<QWidget*> tabOrder{
        mEqualizerSwitch,      mEqualizerPresetsPopUp,      mEQSettingsView,
        mVocalReductionSwitch, mVocalReductionPresetsPopUp, mVocalRemovalSettingsView,
        mPanningSwitch,        mOutOfPhaseSwitch,           mPanSlider};
    for (auto it = tabOrder.begin(); it + 1 != tabOrder.end(); ++it)
        setTabOrder(*it, *(it + 1));
    grid->setRowStretch(1, 1);
    grid->setColumnStretch(0, 5);
    grid->setColumnStretch(1, 4);
    grid->setColumnStretch(2, 3);

    connect(mEqualizerPresetsPopUp, &QComboBox::activated, this,
            &TeskEffectsViewController::equalizerPresetChanged);
    connect(mVocalReductionPresetsPopUp, &QComboBox::activated, this,
            &TeskEffectsViewController::vocalReductionPresetChanged);
    connect(mPanSlider, &TeskPanSlider::actionTriggered, this,
            &TeskEffectsViewController::panSliderChanged);
    // A click is the user's; showing the model's value does not come back through `clicked`.
    connect(mEqualizerSwitch, &QCheckBox::clicked, this, [this](bool on) {
        if (mRepresentedObject)
            mRepresentedObject->setEqualizerEnabled(on);
    });
    connect(mVocalReductionSwitch, &QCheckBox::clicked, this, [this](bool on) {
        if (mRepresentedObject)
            mRepresentedObject->setVocalReductionEnabled(on);
    });
    connect(mPanningSwitch, &QCheckBox::clicked, this, [this](bool on) {
        if (mRepresentedObject)
            mRepresentedObject->setPanningEnabled(on);
    });
    // Out of phase works inside the pan mix: switched on, it switches the mix on, as moving the
    // pan slider does, or nothing would be heard.
    connect(mOutOfPhaseSwitch, &QCheckBox::clicked, this, [this](bool on) {
        if (!mRepresentedObject)
            return;
        mRepresentedObject->setOutOfPhase(on);
        if (on)
            mRepresentedObject->setPanningEnabled(true);
    });
}

void TeskEffectsViewController::setRepresentedObject(TeskEffectsSettings* settings) {
    if (mRepresentedObject == settings)
        return;
    if (mRepresentedObject) {
        removeObserver(mRepresentedObject, this, QStringLiteral("equalizerSettings"),
                       kEqualizerSettingsContext);
        removeObserver(mRepresentedObject, this, QStringLiteral("vocalReductionEffectSettings"),
                       kVocalReductionSettingsContext);
    }
    unbindViews();
    for (const auto& connection : mSwitchConnections)
        disconnect(connection);
    mSwitchConnections.clear();
    mManualEqualizerSettings.reset();
    mManualVocalReductionSettings.reset();
    mRepresentedObject = settings;
    setEnabled(settings != nullptr);
    if (!settings)
        return;

    bindViews();
    for (auto changed :
         {&TeskEffectsSettings::equalizerEnabledChanged,
          &TeskEffectsSettings::vocalReductionEnabledChanged,
          &TeskEffectsSettings::panningEnabledChanged, &TeskEffectsSettings::outOfPhaseChanged})
        mSwitchConnections.push_back(
            connect(settings, changed, this, &TeskEffectsViewController::showSwitches));
    showSwitches();
    addObserver(settings, this, QStringLiteral("equalizerSettings"), ObservingOption::Initial,
                kEqualizerSettingsContext);
    addObserver(settings, this, QStringLiteral("vocalReductionEffectSettings"),
                ObservingOption::Initial, kVocalReductionSettingsContext);
}

void TeskEffectsViewController::bindViews() {
    TeskEffectsSettings* settings = mRepresentedObject;
    mEQSettingsView->bind(QStringLiteral("enabled"), settings, QStringLiteral("equalizerEnabled"));
    mEQSettingsView->bind(QStringLiteral("bands"), settings,
                          QStringLiteral("equalizerSettings.bands"));
    mVocalRemovalSettingsView->bind(QStringLiteral("enabled"), settings,
                                    QStringLiteral("vocalReductionEnabled"));
    mVocalRemovalSettingsView->bind(QStringLiteral("lowFrequency"), settings,
                                    QStringLiteral("vocalReductionEffectSettings.lowFrequency"));
    mVocalRemovalSettingsView->bind(QStringLiteral("highFrequency"), settings,
                                    QStringLiteral("vocalReductionEffectSettings.highFrequency"));
    mPanSpectrumView->bind(QStringLiteral("enabled"), settings, QStringLiteral("panningEnabled"));
    mPanSpectrumView->bind(QStringLiteral("panFraction"), settings, QStringLiteral("panAmount"));
    mPanSlider->bind(QStringLiteral("value"), settings, QStringLiteral("panAmount"));
}

void TeskEffectsViewController::unbindViews() {
    for (SBindingView* view : std::initializer_list<SBindingView*>{
             mEQSettingsView, mVocalRemovalSettingsView, mPanSpectrumView, mPanSlider})
        for (const QString& binding : view->bindingsManager().boundBindings())
            view->unbind(binding);
}

void TeskEffectsViewController::showSwitches() {
    if (!mRepresentedObject)
        return;
    mEqualizerSwitch->setChecked(mRepresentedObject->isEqualizerEnabled());
    mVocalReductionSwitch->setChecked(mRepresentedObject->isVocalReductionEnabled());
    mPanningSwitch->setChecked(mRepresentedObject->isPanningEnabled());
    mOutOfPhaseSwitch->setChecked(mRepresentedObject->isOutOfPhase());
}

void TeskEffectsViewController::observeValueForKeyPath(const QString&, QObject*,
                                                       const void* context) {
    if (context == kEqualizerSettingsContext)
        equalizerSettingsChanged();
    else if (context == kVocalReductionSettingsContext)
        vocalReductionSettingsChanged();
}

void TeskEffectsViewController::equalizerSettingsChanged() {
    const TeskEqualizerSettings* current =
        mRepresentedObject ? mRepresentedObject->equalizerSettings() : nullptr;
    if (!current)
        return;
    const int index = presetMenuIndex(int(mEqualizerPresetsArray.size()), [&](int preset) {
        return mEqualizerPresetsArray[std::size_t(preset)]->isEqual(*current);
    });
    mEqualizerPresetsPopUp->setCurrentIndex(index);
    if (index == 0)
        mManualEqualizerSettings = current->copy();
}

void TeskEffectsViewController::vocalReductionSettingsChanged() {
    const TeskVocalReductionEffectSettings* current =
        mRepresentedObject ? mRepresentedObject->vocalReductionEffectSettings() : nullptr;
    if (!current)
        return;
    const int index = presetMenuIndex(int(mVocalReductionPresetsArray.size()), [&](int preset) {
        return mVocalReductionPresetsArray[std::size_t(preset)]->isEqual(*current);
    });
    mVocalReductionPresetsPopUp->setCurrentIndex(index);
    if (index == 0)
        mManualVocalReductionSettings = current->copy();
}

void TeskEffectsViewController::equalizerPresetChanged(int index) {
    if (!mRepresentedObject)
        return;
    if (index == 0) {
        if (!mManualEqualizerSettings)
            mManualEqualizerSettings = mRepresentedObject->equalizerSettings()->copy();
        // The setter copies, and the menu rule may replace the remembered values meanwhile.
        const auto manual = mManualEqualizerSettings->copy();
        mRepresentedObject->setEqualizerSettings(manual.get());
    } else if (index >= 2 && index - 2 < int(mEqualizerPresetsArray.size())) {
        mRepresentedObject->setEqualizerSettings(
            mEqualizerPresetsArray[std::size_t(index - 2)].get());
    } else {
        return;
    }
    mRepresentedObject->setEqualizerEnabled(true); // any preset, even the one shown
}

void TeskEffectsViewController::vocalReductionPresetChanged(int index) {
    if (!mRepresentedObject)
        return;
    if (index == 0) {
        if (!mManualVocalReductionSettings)
            mManualVocalReductionSettings =
                mRepresentedObject->vocalReductionEffectSettings()->copy();
        const auto manual = mManualVocalReductionSettings->copy();
        mRepresentedObject->setVocalReductionEffectSettings(manual.get());
    } else if (index >= 2 && index - 2 < int(mVocalReductionPresetsArray.size())) {
        mRepresentedObject->setVocalReductionEffectSettings(
            mVocalReductionPresetsArray[std::size_t(index - 2)].get());
    } else {
        return;
    }
    mRepresentedObject->setVocalReductionEnabled(true);
}

void TeskEffectsViewController::panSliderChanged() {
    if (mRepresentedObject)
        mRepresentedObject->setPanningEnabled(true);
}

void TeskEffectsViewController::effectViewDidBeginEditing(TeskSpectrumEffectView* view) {
    if (!mRepresentedObject)
        return;
    if (view == mEQSettingsView)
        mRepresentedObject->setEqualizerEnabled(true);
    else if (view == mVocalRemovalSettingsView)
        mRepresentedObject->setVocalReductionEnabled(true);
}

void TeskEffectsViewController::setFrequencyTable(std::vector<float> table) {
    mEQSettingsView->setFrequencyTable(table);
    mVocalRemovalSettingsView->setFrequencyTable(table);
    mPanSpectrumView->setFrequencyTable(std::move(table));
}

void TeskEffectsViewController::setFrequencyResponse(std::vector<float> spectrum,
                                                     unsigned channel) {
    mEQSettingsView->setSpectrum(spectrum, channel);
    mVocalRemovalSettingsView->setSpectrum(spectrum, channel);
    mPanSpectrumView->setSpectrum(std::move(spectrum), channel);
}

void TeskEffectsViewController::refreshFrequencyDisplays() {
    // A switched-off editor draws no spectrum: nothing on it changes fifteen times a second.
    for (TeskSpectrumEffectView* view : std::initializer_list<TeskSpectrumEffectView*>{
             mEQSettingsView, mVocalRemovalSettingsView, mPanSpectrumView})
        if (view->isEffectEnabled())
            view->update();
}

QWidget* TeskEffectsViewController::firstTabStop() const {
    return mEqualizerSwitch;
}

} // namespace tesk
