#include "observation/KeyValueObserving.h"

#include "diagnostics/TeskAssert.h"

#include <QCoreApplication>
#include <QDebug>
#include <QMetaProperty>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <algorithm>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace tesk {
namespace {

bool onMainThread() {
    const QCoreApplication* application = QCoreApplication::instance();
    return application == nullptr || QThread::currentThread() == application->thread();
}

/// One step of an observed key path: the object at that depth and the signals that tell of a
/// change of its key (the key's own NOTIFY signal and those of the keys it depends on).
struct Link {
    QObject* object = nullptr; // cleared when the object is destroyed
    QString key;
    QStringList affectingKeys; // the key itself and the keys it depends on
    std::vector<int> signalIndexes;
};

struct Registration {
    QPointer<QObject> root;
    KeyValueObserver* observer = nullptr;
    QString keyPath;
    QStringList keys;
    const void* context = nullptr;
    std::vector<Link> links;
    bool active = true;
};

QObject* objectValue(const QObject* object, const QString& key) {
    const QVariant value = object->property(key.toUtf8().constData());
    if (!(value.metaType().flags() & QMetaType::PointerToQObject))
        return nullptr;
    return value.value<QObject*>();
}

/// The registry of all observations. Connects to each observed signal once, however many
/// registrations use it, and dispatches from the one slot `fire`.
class ObservationCenter : public QObject {
    Q_OBJECT
public:
    static ObservationCenter& instance() {
        static ObservationCenter* center = new ObservationCenter;
        return *center;
    }

    void add(QObject* object, KeyValueObserver* observer, const QString& keyPath,
             ObservingOptions options, const void* context) {
        TESK_PARAMETER_ASSERT(object != nullptr && observer != nullptr && !keyPath.isEmpty());
        TESK_ASSERT(onMainThread());
        auto registration = std::make_shared<Registration>();
        registration->root = object;
        registration->observer = observer;
        registration->keyPath = keyPath;
        registration->keys = keyPath.split(u'.');
        registration->context = context;
        mRegistrations.push_back(registration);
        attach(*registration, 0);
        if (options.testFlag(ObservingOption::Initial))
            observer->observeValueForKeyPath(keyPath, object, context);
    }

    template <typename Predicate> bool removeLast(Predicate matches) {
        TESK_ASSERT(onMainThread());
        for (auto it = mRegistrations.rbegin(); it != mRegistrations.rend(); ++it) {
            if (!matches(**it))
                continue;
            retire(**it);
            mRegistrations.erase(std::next(it).base());
            return true;
        }
        return false;
    }

    void removeAll(const KeyValueObserver* observer) {
        std::erase_if(mRegistrations, [this, observer](const auto& registration) {
            if (registration->observer != observer)
                return false;
            retire(*registration);
            return true;
        });
    }

    int count(const QObject* object) const {
        return int(std::count_if(
            mRegistrations.begin(), mRegistrations.end(),
            [object](const auto& registration) { return registration->root == object; }));
    }

    void announce(QObject* object, const QString& key) {
        TESK_ASSERT(onMainThread());
        // A key with a NOTIFY signal is announced through it, so plain Qt connections hear the
        // change too; the signal comes back here through `fire`.
        const QMetaObject* meta = object->metaObject();
        const int propertyIndex = meta->indexOfProperty(key.toUtf8().constData());
        if (propertyIndex >= 0) {
            const QMetaMethod notify = meta->property(propertyIndex).notifySignal();
            if (notify.isValid() && notify.parameterCount() == 0 && notify.invoke(object))
                return;
        }
        dispatch([&](const Link& link) {
            return link.object == object && link.affectingKeys.contains(key);
        });
    }

public slots:
    void fire() {
        QObject* object = sender();
        const int signalIndex = senderSignalIndex();
        dispatch([&](const Link& link) {
            return link.object == object &&
                   std::find(link.signalIndexes.begin(), link.signalIndexes.end(), signalIndex) !=
                       link.signalIndexes.end();
        });
    }

private:
    struct ObjectWatch {
        QMetaObject::Connection destroyed;
        std::map<int, std::pair<QMetaObject::Connection, int>> signalUsers;
    };

    /// Tells every registration with a matching link, once each. Observers may add or remove
    /// observations while they are told, so this works on a snapshot.
    template <typename Matches> void dispatch(Matches matches) {
        const auto snapshot = mRegistrations;
        for (const auto& registration : snapshot) {
            if (!registration->active)
                continue;
            for (std::size_t level = 0; level < registration->links.size(); ++level) {
                if (!matches(registration->links[level]))
                    continue;
                // A nested object on the path may have been replaced: follow the new one.
                if (level + 1 < std::size_t(registration->keys.size()))
                    attach(*registration, level + 1);
                if (registration->root)
                    registration->observer->observeValueForKeyPath(
                        registration->keyPath, registration->root, registration->context);
                break;
            }
        }
    }

    /// Builds the links from `level` on, replacing any there were.
    void attach(Registration& registration, std::size_t level) {
        detach(registration, level);
        QObject* object = nullptr;
        if (level == 0)
            object = registration.root;
        else if (QObject* parent = registration.links[level - 1].object)
            object = objectValue(parent, registration.keys[int(level) - 1]);

        for (std::size_t i = level; object != nullptr && i < std::size_t(registration.keys.size());
             ++i) {
            Link link;
            link.object = object;
            link.key = registration.keys[int(i)];
            link.affectingKeys = QStringList{link.key} + keysAffectingKey(object, link.key);
            for (const QString& key : link.affectingKeys) {
                const QMetaObject* meta = object->metaObject();
                const int propertyIndex = meta->indexOfProperty(key.toUtf8().constData());
                if (propertyIndex < 0)
                    continue;
                const int signalIndex = meta->property(propertyIndex).notifySignalIndex();
                if (signalIndex < 0)
                    continue;
                watch(object, signalIndex);
                link.signalIndexes.push_back(signalIndex);
            }
            registration.links.push_back(link);
            if (i + 1 < std::size_t(registration.keys.size()))
                object = objectValue(object, link.key);
        }
    }

    void detach(Registration& registration, std::size_t level) {
        while (registration.links.size() > level) {
            const Link& link = registration.links.back();
            if (link.object != nullptr) {
                for (int signalIndex : link.signalIndexes)
                    unwatch(link.object, signalIndex);
            }
            registration.links.pop_back();
        }
    }

    void retire(Registration& registration) {
        detach(registration, 0);
        registration.active = false;
    }

    void watch(QObject* object, int signalIndex) {
        ObjectWatch& objectWatch = mWatches[object];
        if (!objectWatch.destroyed) {
            objectWatch.destroyed =
                connect(object, &QObject::destroyed, this, [this, object] { forget(object); });
        }
        auto& [connection, users] = objectWatch.signalUsers[signalIndex];
        if (users++ == 0) {
            static const QMetaMethod fireMethod =
                staticMetaObject.method(staticMetaObject.indexOfSlot("fire()"));
            connection =
                connect(object, object->metaObject()->method(signalIndex), this, fireMethod);
        }
    }

    void unwatch(QObject* object, int signalIndex) {
        const auto found = mWatches.find(object);
        if (found == mWatches.end())
            return;
        auto& signalUsers = found->second.signalUsers;
        const auto user = signalUsers.find(signalIndex);
        if (user == signalUsers.end())
            return;
        if (--user->second.second == 0) {
            disconnect(user->second.first);
            signalUsers.erase(user);
        }
        if (signalUsers.empty()) {
            disconnect(found->second.destroyed);
            mWatches.erase(found);
        }
    }

    /// A watched object is going away: its connections go with it; the links that pointed at
    /// it wait for their parent to announce a replacement.
    void forget(QObject* object) {
        mWatches.erase(object);
        for (const auto& registration : mRegistrations) {
            for (Link& link : registration->links) {
                if (link.object == object) {
                    link.object = nullptr;
                    link.signalIndexes.clear();
                }
            }
        }
    }

    std::vector<std::shared_ptr<Registration>> mRegistrations;
    std::unordered_map<QObject*, ObjectWatch> mWatches;
};

} // namespace

KeyValueObserver::~KeyValueObserver() {
    ObservationCenter::instance().removeAll(this);
}

int observationCount(const QObject* object) {
    return ObservationCenter::instance().count(object);
}

void addObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath,
                 ObservingOptions options, const void* context) {
    ObservationCenter::instance().add(object, observer, keyPath, options, context);
}

bool removeObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath) {
    return ObservationCenter::instance().removeLast([&](const Registration& registration) {
        return registration.root == object && registration.observer == observer &&
               registration.keyPath == keyPath;
    });
}

bool removeObserver(QObject* object, KeyValueObserver* observer, const QString& keyPath,
                    const void* context) {
    return ObservationCenter::instance().removeLast([&](const Registration& registration) {
        return registration.root == object && registration.observer == observer &&
               registration.keyPath == keyPath && registration.context == context;
    });
}

void announceChange(QObject* object, const char* key) {
    ObservationCenter::instance().announce(object, QString::fromUtf8(key));
}

QVariant valueForKeyPath(const QObject* object, const QString& keyPath) {
    const QStringList keys = keyPath.split(u'.');
    for (int i = 0; i + 1 < keys.size() && object != nullptr; ++i)
        object = objectValue(object, keys[i]);
    if (object == nullptr)
        return {};
    return object->property(keys.last().toUtf8().constData());
}

bool setValueForKeyPath(QObject* object, const QString& keyPath, const QVariant& value) {
    const QStringList keys = keyPath.split(u'.');
    for (int i = 0; i + 1 < keys.size() && object != nullptr; ++i)
        object = objectValue(object, keys[i]);
    if (object != nullptr) {
        const QMetaObject* meta = object->metaObject();
        const int index = meta->indexOfProperty(keys.last().toUtf8().constData());
        if (index >= 0 && meta->property(index).write(object, value))
            return true;
    }
    qWarning().noquote()
        << QStringLiteral("Cannot set the key path \"%1\" to %2").arg(keyPath, value.toString());
    return false;
}

QStringList keysAffectingKey(const QObject* object, const QString& key) {
    QStringList keys;
    QStringList pending{key};
    const QMetaObject* meta = object->metaObject();
    while (!pending.isEmpty()) {
        QString name = pending.takeFirst();
        name[0] = name[0].toUpper();
        const QByteArray infoName = "keyPathsForValuesAffecting" + name.toUtf8();
        const int index = meta->indexOfClassInfo(infoName.constData());
        if (index < 0)
            continue;
        const QStringList declared =
            QString::fromUtf8(meta->classInfo(index).value()).split(u',', Qt::SkipEmptyParts);
        for (QString affecting : declared) {
            affecting = affecting.trimmed();
            if (affecting != key && !keys.contains(affecting)) {
                keys.push_back(affecting);
                pending.push_back(affecting);
            }
        }
    }
    return keys;
}

} // namespace tesk

#include "KeyValueObserving.moc"
