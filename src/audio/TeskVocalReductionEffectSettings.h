#pragma once

#include <QObject>
#include <QVariantMap>
#include <memory>

namespace tesk {

/// The frequency band, in Hz, whose centre-panned content the vocal reduction removes, with a
/// name for the user. Copies and the dictionary form do not carry the name. Main thread only.
class TeskVocalReductionEffectSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(
        double lowFrequency READ lowFrequency WRITE setLowFrequency NOTIFY lowFrequencyChanged)
    Q_PROPERTY(
        double highFrequency READ highFrequency WRITE setHighFrequency NOTIFY highFrequencyChanged)
    Q_PROPERTY(unsigned roundLowFrequency READ roundLowFrequency)
    Q_PROPERTY(unsigned roundHighFrequency READ roundHighFrequency)
    Q_CLASSINFO("keyPathsForValuesAffectingRoundLowFrequency", "lowFrequency")
    Q_CLASSINFO("keyPathsForValuesAffectingRoundHighFrequency", "highFrequency")

public:
    /// "Manual", with both frequencies at 0 Hz.
    TeskVocalReductionEffectSettings();
    /// Reads "LowFrequency" and "HighFrequency"; a missing or non-numeric value keeps 0.
    explicit TeskVocalReductionEffectSettings(const QVariantMap& dictionary);

    static std::unique_ptr<TeskVocalReductionEffectSettings> maleVocalPreset();
    static std::unique_ptr<TeskVocalReductionEffectSettings> femaleVocalPreset();

    QVariantMap dictionaryRepresentation() const;
    /// A new object with the same band, named "Manual" whatever this one is called.
    std::unique_ptr<TeskVocalReductionEffectSettings> copy() const;
    /// True when both edges are exactly equal; names do not count.
    bool isEqual(const TeskVocalReductionEffectSettings& other) const;

    QString name() const { return mName; }
    void setName(const QString& name);
    double lowFrequency() const { return mLowFrequency; }
    void setLowFrequency(double hertz);
    double highFrequency() const { return mHighFrequency; }
    void setHighFrequency(double hertz);

    /// The edges as the band editor shows them: single precision, rounded half to even.
    unsigned roundLowFrequency() const;
    unsigned roundHighFrequency() const;

signals:
    void nameChanged();
    void lowFrequencyChanged();
    void highFrequencyChanged();

private:
    static std::unique_ptr<TeskVocalReductionEffectSettings>
    preset(const QString& name, double lowFrequency, double highFrequency);

    QString mName;
    double mLowFrequency = 0.0;
    double mHighFrequency = 0.0;
};

} // namespace tesk
