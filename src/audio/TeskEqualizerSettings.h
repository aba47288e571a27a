#pragma once

#include <QList>
#include <QObject>
#include <QVariantMap>
#include <memory>

namespace tesk {

/// The ten band gains of the graphic equalizer, in dB, index 0 the lowest band, with a name
/// for the user. A plain model object: copyable by `copy`, compared by its bands only,
/// observable, and convertible to and from a dictionary. Main thread only.
class TeskEqualizerSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QList<double> bands READ bands WRITE setBands NOTIFY bandsChanged)

public:
    static constexpr int kBandCount = 10;

    /// "Manual", every band at 0 dB.
    TeskEqualizerSettings();
    /// Reads the dictionary form: "Bands", taken as it stands when it is an array of numbers.
    /// Anything else counts as missing and keeps the default.
    explicit TeskEqualizerSettings(const QVariantMap& dictionary);

    static std::unique_ptr<TeskEqualizerSettings> flatPreset();
    static std::unique_ptr<TeskEqualizerSettings> isolateBassPreset();
    static std::unique_ptr<TeskEqualizerSettings> isolateMidsPreset();

    QVariantMap dictionaryRepresentation() const;
    /// A new object with the same bands and name.
    std::unique_ptr<TeskEqualizerSettings> copy() const;
    /// True when the bands are equal number by number; names do not count.
    bool isEqual(const TeskEqualizerSettings& other) const;

    QString name() const { return mName; }
    void setName(const QString& name);
    /// The bands as held: ten, unless a file said otherwise.
    QList<double> bands() const { return mBands; }
    void setBands(const QList<double>& bands);

    /// The gain of band `index` (0 to 9) in dB; a band missing from a short array is 0 dB.
    double gainOfBand(int index) const;

signals:
    void nameChanged();
    void bandsChanged();

private:
    static std::unique_ptr<TeskEqualizerSettings> preset(const QString& name,
                                                         const QList<double>& bands);

    QString mName;
    QList<double> mBands;
};

} // namespace tesk
