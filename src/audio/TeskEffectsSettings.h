#pragma once

#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "observation/KeyValueObserving.h"

#include <QObject>
#include <QVariantMap>
#include <memory>

namespace tesk {

/// What the user chose for a song's three effects: the equalizer, the vocal reduction band and
/// the pan / out-of-phase mix. Owns copies of its nested settings, and tells observers of
/// "equalizerSettings" or "vocalReductionEffectSettings" when a value inside them changes.
/// Main thread only.
class TeskEffectsSettings : public QObject, private KeyValueObserver {
    Q_OBJECT
    Q_PROPERTY(bool equalizerEnabled READ isEqualizerEnabled WRITE setEqualizerEnabled NOTIFY
                   equalizerEnabledChanged)
    Q_PROPERTY(tesk::TeskEqualizerSettings* equalizerSettings READ equalizerSettings WRITE
                   setEqualizerSettings NOTIFY equalizerSettingsChanged)
    Q_PROPERTY(bool outOfPhase READ isOutOfPhase WRITE setOutOfPhase NOTIFY outOfPhaseChanged)
    Q_PROPERTY(bool panningEnabled READ isPanningEnabled WRITE setPanningEnabled NOTIFY
                   panningEnabledChanged)
    Q_PROPERTY(double panAmount READ panAmount WRITE setPanAmount NOTIFY panAmountChanged)
    Q_PROPERTY(bool vocalReductionEnabled READ isVocalReductionEnabled WRITE
                   setVocalReductionEnabled NOTIFY vocalReductionEnabledChanged)
    Q_PROPERTY(tesk::TeskVocalReductionEffectSettings* vocalReductionEffectSettings READ
                   vocalReductionEffectSettings WRITE setVocalReductionEffectSettings NOTIFY
                       vocalReductionEffectSettingsChanged)

public:
    /// Everything off, a flat equalizer, the male-vocals band and the pan at the centre.
    TeskEffectsSettings();
    /// Reads the dictionary form key by key; a missing or wrong-typed value keeps the default.
    explicit TeskEffectsSettings(const QVariantMap& dictionary);
    ~TeskEffectsSettings() override;

    QVariantMap dictionaryRepresentation() const;
    std::unique_ptr<TeskEffectsSettings> copy() const;

    bool isEqualizerEnabled() const { return mEqualizerEnabled; }
    void setEqualizerEnabled(bool enabled);
    /// Owned by this object; replaced (not changed) by `setEqualizerSettings`.
    TeskEqualizerSettings* equalizerSettings() const { return mEqualizerSettings.get(); }
    /// Stores a copy of `settings` (or nothing); the caller's object is never shared.
    void setEqualizerSettings(TeskEqualizerSettings* settings);
    bool isOutOfPhase() const { return mOutOfPhase; }
    void setOutOfPhase(bool outOfPhase);
    bool isPanningEnabled() const { return mPanningEnabled; }
    void setPanningEnabled(bool enabled);
    /// 0 to 1, 0.5 the centre; not clamped.
    double panAmount() const { return mPanAmount; }
    void setPanAmount(double amount);
    bool isVocalReductionEnabled() const { return mVocalReductionEnabled; }
    void setVocalReductionEnabled(bool enabled);
    TeskVocalReductionEffectSettings* vocalReductionEffectSettings() const {
        return mVocalReductionEffectSettings.get();
    }
    /// Stores a copy of `settings` (or nothing); a copy is always named "Manual".
    void setVocalReductionEffectSettings(TeskVocalReductionEffectSettings* settings);

signals:
    void equalizerEnabledChanged();
    void equalizerSettingsChanged();
    void outOfPhaseChanged();
    void panningEnabledChanged();
    void panAmountChanged();
    void vocalReductionEnabledChanged();
    void vocalReductionEffectSettingsChanged();

private:
    void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                const void* context) override;

    bool mEqualizerEnabled = false;
    std::unique_ptr<TeskEqualizerSettings> mEqualizerSettings;
    bool mOutOfPhase = false;
    bool mPanningEnabled = false;
    double mPanAmount = 0.5;
    bool mVocalReductionEnabled = false;
    std::unique_ptr<TeskVocalReductionEffectSettings> mVocalReductionEffectSettings;
};

} // namespace tesk
