#include "observation/KeyValueObserving.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>

using namespace tesk;

namespace {

class Child : public QObject {
    Q_OBJECT
    Q_PROPERTY(int value READ value WRITE setValue NOTIFY valueChanged)
public:
    int value() const { return mValue; }
    void setValue(int value) {
        mValue = value;
        emit valueChanged();
    }
signals:
    void valueChanged();

private:
    int mValue = 0;
};

class Owner : public QObject {
    Q_OBJECT
    Q_PROPERTY(Child* child READ child WRITE setChild NOTIFY childChanged)
    Q_PROPERTY(int plain READ plain WRITE setPlain NOTIFY plainChanged)
    Q_PROPERTY(int doubled READ doubled)
    Q_PROPERTY(int quadrupled READ quadrupled)
    Q_PROPERTY(int silent READ silent WRITE setSilent)
    Q_CLASSINFO("keyPathsForValuesAffectingDoubled", "plain")
    Q_CLASSINFO("keyPathsForValuesAffectingQuadrupled", "doubled")
public:
    Child* child() const { return mChild.get(); }
    void setChild(Child* child) {
        mChild.reset(child);
        emit childChanged();
    }
    int plain() const { return mPlain; }
    void setPlain(int plain) {
        mPlain = plain;
        emit plainChanged();
    }
    int doubled() const { return 2 * mPlain; }
    int quadrupled() const { return 4 * mPlain; }
    int silent() const { return mSilent; }
    void setSilent(int silent) { mSilent = silent; }
signals:
    void childChanged();
    void plainChanged();

private:
    std::unique_ptr<Child> mChild = std::make_unique<Child>();
    int mPlain = 0;
    int mSilent = 0;
};

struct Notification {
    QString keyPath;
    QObject* object;
    const void* context;
    QVariant value;
};

/// Records every notification, with the value it could read at that moment.
class Recorder : public KeyValueObserver {
public:
    void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                const void* context) override {
        notifications.push_back({keyPath, object, context, valueForKeyPath(object, keyPath)});
        if (onNotification)
            onNotification();
    }
    std::vector<Notification> notifications;
    std::function<void()> onNotification;
};

const char kFirstContext[] = "first";
const char kSecondContext[] = "second";

} // namespace

TEST(KeyValueObserving, InitialOptionTellsOnceInsideTheRegistration) {
    Owner owner;
    owner.setPlain(3);
    Recorder initial;
    Recorder quiet;
    addObserver(&owner, &initial, "plain", ObservingOption::Initial, kFirstContext);
    addObserver(&owner, &quiet, "plain");

    ASSERT_EQ(initial.notifications.size(), 1u);
    EXPECT_EQ(initial.notifications[0].object, &owner);
    EXPECT_EQ(initial.notifications[0].context, kFirstContext);
    EXPECT_EQ(initial.notifications[0].value.toInt(), 3);
    EXPECT_TRUE(quiet.notifications.empty());

    owner.setPlain(4);
    EXPECT_EQ(initial.notifications.size(), 2u);
    ASSERT_EQ(quiet.notifications.size(), 1u);
    EXPECT_EQ(quiet.notifications[0].value.toInt(), 4);
}

TEST(KeyValueObserving, EachRegistrationKeepsItsContextAndRemovalTakesOneAtATime) {
    Owner owner;
    Recorder recorder;
    addObserver(&owner, &recorder, "plain", ObservingOption::None, kFirstContext);
    addObserver(&owner, &recorder, "plain", ObservingOption::None, kSecondContext);
    owner.setPlain(1);
    ASSERT_EQ(recorder.notifications.size(), 2u);
    EXPECT_NE(recorder.notifications[0].context, recorder.notifications[1].context);

    // By context, then the most recent of the rest.
    EXPECT_TRUE(removeObserver(&owner, &recorder, "plain", kFirstContext));
    recorder.notifications.clear();
    owner.setPlain(2);
    ASSERT_EQ(recorder.notifications.size(), 1u);
    EXPECT_EQ(recorder.notifications[0].context, kSecondContext);

    EXPECT_TRUE(removeObserver(&owner, &recorder, "plain"));
    EXPECT_FALSE(removeObserver(&owner, &recorder, "plain"));
    recorder.notifications.clear();
    owner.setPlain(3);
    EXPECT_TRUE(recorder.notifications.empty());
}

TEST(KeyValueObserving, KeyPathsFollowANestedObjectThatIsReplaced) {
    Owner owner;
    Recorder recorder;
    addObserver(&owner, &recorder, "child.value");

    owner.child()->setValue(5);
    ASSERT_EQ(recorder.notifications.size(), 1u);
    EXPECT_EQ(recorder.notifications[0].value.toInt(), 5);

    auto* replacement = new Child;
    replacement->setValue(9);
    QPointer<Child> old = owner.child();
    owner.setChild(replacement); // the old child is destroyed here
    EXPECT_TRUE(old.isNull());
    ASSERT_EQ(recorder.notifications.size(), 2u);
    EXPECT_EQ(recorder.notifications[1].value.toInt(), 9);

    replacement->setValue(10);
    ASSERT_EQ(recorder.notifications.size(), 3u);
    EXPECT_EQ(recorder.notifications[2].value.toInt(), 10);

    // A path with no object in the middle still answers, and re-attaches later.
    owner.setChild(nullptr);
    EXPECT_FALSE(valueForKeyPath(&owner, "child.value").isValid());
    auto* third = new Child;
    owner.setChild(third);
    third->setValue(11);
    EXPECT_EQ(recorder.notifications.back().value.toInt(), 11);
    EXPECT_EQ(recorder.notifications.size(), 6u);
}

TEST(KeyValueObserving, DependentKeysAreToldWhenTheKeysTheyDependOnChange) {
    Owner owner;
    EXPECT_EQ(keysAffectingKey(&owner, "quadrupled"), (QStringList{"doubled", "plain"}));
    Recorder doubled;
    Recorder quadrupled;
    addObserver(&owner, &doubled, "doubled");
    addObserver(&owner, &quadrupled, "quadrupled");
    owner.setPlain(3);
    ASSERT_EQ(doubled.notifications.size(), 1u);
    EXPECT_EQ(doubled.notifications[0].value.toInt(), 6);
    ASSERT_EQ(quadrupled.notifications.size(), 1u);
    EXPECT_EQ(quadrupled.notifications[0].value.toInt(), 12);
}

TEST(KeyValueObserving, AnnouncedChangesReachObserversAndSignalConnections) {
    Owner owner;
    Recorder silent;
    Recorder child;
    addObserver(&owner, &silent, "silent");
    addObserver(&owner, &child, "child.value");
    QSignalSpy childSignal(&owner, &Owner::childChanged);

    owner.setSilent(8); // no signal: nobody hears it
    EXPECT_TRUE(silent.notifications.empty());
    announceChange(&owner, "silent");
    ASSERT_EQ(silent.notifications.size(), 1u);
    EXPECT_EQ(silent.notifications[0].value.toInt(), 8);

    announceChange(&owner, "child");
    EXPECT_EQ(childSignal.count(), 1);
    EXPECT_EQ(child.notifications.size(), 1u);
}

TEST(KeyValueObserving, GetsAndSetsValuesByKeyPath) {
    Owner owner;
    EXPECT_TRUE(setValueForKeyPath(&owner, "child.value", 42));
    EXPECT_EQ(owner.child()->value(), 42);
    EXPECT_EQ(valueForKeyPath(&owner, "child.value").toInt(), 42);
    EXPECT_TRUE(setValueForKeyPath(&owner, "plain", "7"));
    EXPECT_EQ(owner.plain(), 7);

    // A nested object can be set through its key path like any other value.
    auto* replacement = new Child;
    EXPECT_TRUE(setValueForKeyPath(&owner, "child",
                                   QVariant::fromValue(static_cast<QObject*>(replacement))));
    EXPECT_EQ(owner.child(), replacement);

    EXPECT_FALSE(valueForKeyPath(&owner, "missing.value").isValid());
    EXPECT_FALSE(setValueForKeyPath(&owner, "doubled", 1)); // read-only
    EXPECT_FALSE(setValueForKeyPath(&owner, "nothing", 1));
}

TEST(KeyValueObserving, ObserversMayLeaveWhileBeingToldAndDestroyedOnesAreNeverCalled) {
    Owner owner;
    Recorder leaving;
    Recorder staying;
    leaving.onNotification = [&] { EXPECT_TRUE(removeObserver(&owner, &leaving, "plain")); };
    addObserver(&owner, &leaving, "plain");
    addObserver(&owner, &staying, "plain");
    owner.setPlain(1);
    owner.setPlain(2);
    EXPECT_EQ(leaving.notifications.size(), 1u);
    EXPECT_EQ(staying.notifications.size(), 2u);

    {
        Recorder shortLived;
        addObserver(&owner, &shortLived, "child.value");
    }
    owner.child()->setValue(3); // would reach a destroyed observer if it were still registered

    // The observed object going first is no harm either (the sanitizer build would see it).
    Recorder orphan;
    {
        Owner shortLivedOwner;
        addObserver(&shortLivedOwner, &orphan, "child.value");
    }
}

#include "KeyValueObservingTest.moc"
