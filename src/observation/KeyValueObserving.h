#pragma once

// Key-value observation over Qt properties. An observer registers for a key path of an object
// ("equalizerSettings.bands") and is told whenever a value on that path may have changed: when
// a property's NOTIFY signal fires, when a property it depends on changes, or when a change is
// announced by hand. Key paths follow nested objects and re-attach when one is replaced.
//
// A property's dependencies are declared in its class, in the form
//     Q_CLASSINFO("keyPathsForValuesAffectingRoundLowFrequency", "lowFrequency")
// with several keys separated by commas.
//
// Main thread only, like the models and views that use it.

#include <QFlags>
#include <QString>
#include <QVariant>

class QObject;

namespace tesk {

enum class ObservingOption {
    None = 0,
    /// Tell the observer once, at once, inside the registration call.
    Initial = 1,
};
Q_DECLARE_FLAGS(ObservingOptions, ObservingOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(ObservingOptions)

/// Receives observed changes. An observer that is destroyed stops all its observations.
class KeyValueObserver {
public:
    KeyValueObserver() = default;
    KeyValueObserver(const KeyValueObserver&) = delete;
    KeyValueObserver& operator=(const KeyValueObserver&) = delete;
    virtual ~KeyValueObserver();

    /// The value at `keyPath` of `object` may have changed; `context` is the one given at
    /// registration. Read the new value with `valueForKeyPath`.
    virtual void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                        const void* context) = 0;
};

/// Starts telling `observer` of changes of `keyPath` of `object`. The same observer may
/// register several times, each registration with its own context.
void addObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath,
                 ObservingOptions options = ObservingOption::None, const void* context = nullptr);

/// Ends the most recent registration of `observer` for `keyPath` of `object`. Returns false
/// when there is none.
bool removeObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath);

/// Ends the registration of `observer` for `keyPath` of `object` made with `context`.
bool removeObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath,
                    const void* context);

/// Tells the observers of `key` of `object`, of the keys that depend on it and of key paths
/// that pass through it, that its value changed: for changes made inside a nested object and
/// for values with no NOTIFY signal. A key with a NOTIFY signal (with no arguments) is
/// announced by emitting it, so plain signal connections hear of the change as well.
void announceChange(QObject* object, const char* key);

/// The value at `keyPath` of `object`, or an invalid QVariant when a step of the path is
/// missing.
QVariant valueForKeyPath(const QObject* object, const QString& keyPath);

/// Writes `value` to the property at the end of `keyPath`. Returns false, with a warning in
/// the log, when the path does not lead to a writable property that takes the value.
bool setValueForKeyPath(QObject* object, const QString& keyPath, const QVariant& value);

/// How many registrations observe key paths of `object`, for tests that check that observers
/// leave.
int observationCount(const QObject* object);

/// The keys whose changes also change `key` of objects of `object`'s class, as its class
/// declares them (transitively).
QStringList keysAffectingKey(const QObject* object, const QString& key);

} // namespace tesk
