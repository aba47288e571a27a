#include "controls/SBindingView.h"
#include "observation/KeyValueObserving.h"
#include "support/Assertions.h"

#include <gtest/gtest.h>
#include <memory>

using namespace tesk;

namespace {

class Model : public QObject {
    Q_OBJECT
    Q_PROPERTY(double speed READ speed WRITE setSpeed NOTIFY speedChanged)
public:
    double speed() const { return mSpeed; }
    void setSpeed(double speed) {
        mSpeed = speed;
        emit speedChanged();
    }
signals:
    void speedChanged();

private:
    double mSpeed = 1.0;
};

/// Records every change it is told of, as (binding, value read back) pairs.
class RecordingView : public SBindingView {
public:
    QStringList exposedBindings() const override {
        return SBindingView::exposedBindings() + QStringList{"playbackSpeed"};
    }
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override {
        seen.append({binding, valueForKeyPath(object, keyPath).toDouble()});
    }
    QList<std::pair<QString, double>> seen;
};

/// A subclass adds its names to those of its base.
class DerivedView : public RecordingView {
public:
    QStringList exposedBindings() const override {
        return RecordingView::exposedBindings() + QStringList{"dirty"};
    }
};

class ForgetfulView : public SBindingView {
public:
    QStringList exposedBindings() const override { return {"value"}; }
};

using Seen = QList<std::pair<QString, double>>;

} // namespace

TEST(SBindingView, BindingTellsTheCurrentValueAtOnceAndEveryChangeAfter) {
    Model model;
    model.setSpeed(0.75);
    RecordingView view;
    EXPECT_TRUE(view.bind("playbackSpeed", &model, "speed"));
    EXPECT_EQ(view.seen, (Seen{{"playbackSpeed", 0.75}})) << "told inside bind";

    model.setSpeed(0.5);
    EXPECT_EQ(view.seen.size(), 2);
    EXPECT_EQ(view.seen.last().second, 0.5);
}

TEST(SBindingView, WriteBackGoesToTheModelAndComesBackAsAChange) {
    Model model;
    RecordingView view;
    view.updateObservableObjectForBindingName("playbackSpeed", 0.25);
    EXPECT_EQ(model.speed(), 1.0) << "unbound: nothing written";

    view.bind("playbackSpeed", &model, "speed");
    view.seen.clear();
    view.updateObservableObjectForBindingName("playbackSpeed", 0.25);
    EXPECT_EQ(model.speed(), 0.25);
    EXPECT_EQ(view.seen, (Seen{{"playbackSpeed", 0.25}}));
}

TEST(SBindingView, ANameIsBoundToOneObjectAtATime) {
    Model first;
    Model second;
    second.setSpeed(2.0);
    RecordingView view;
    view.bind("playbackSpeed", &first, "speed");
    view.bind("playbackSpeed", &second, "speed");
    EXPECT_EQ(observationCount(&first), 0);
    EXPECT_EQ(view.bindingsManager().observableObject("playbackSpeed"), &second);
    EXPECT_EQ(view.bindingsManager().boundBindings(), QStringList{"playbackSpeed"});

    view.seen.clear();
    first.setSpeed(3.0);
    EXPECT_TRUE(view.seen.isEmpty()) << "the first object no longer reaches the view";
    second.setSpeed(4.0);
    EXPECT_EQ(view.seen, (Seen{{"playbackSpeed", 4.0}}));
}

TEST(SBindingView, UnbindingAndTearDownEndEveryObservation) {
    Model model;
    RecordingView view;
    EXPECT_TRUE(view.unbind("playbackSpeed")) << "never bound: still yes";
    EXPECT_TRUE(view.seen.isEmpty());

    view.bind("playbackSpeed", &model, "speed");
    EXPECT_TRUE(view.unbind("playbackSpeed"));
    EXPECT_EQ(observationCount(&model), 0);
    EXPECT_EQ(view.bindingsManager().observableObject("playbackSpeed"), nullptr);
    view.updateObservableObjectForBindingName("playbackSpeed", 9.0);
    EXPECT_EQ(model.speed(), 1.0);

    auto derived = std::make_unique<DerivedView>();
    EXPECT_TRUE(derived->bind("playbackSpeed", &model, "speed"));
    EXPECT_TRUE(derived->bind("dirty", &model, "speed"));
    EXPECT_EQ(observationCount(&model), 2);
    derived.reset();
    EXPECT_EQ(observationCount(&model), 0) << "a released view leaves no observer behind";
    model.setSpeed(2.0);
}

TEST(SBindingView, NamesTheViewDoesNotExposeAreRefused) {
    Model model;
    RecordingView view;
    EXPECT_FALSE(view.bind("dirty", &model, "speed")) << "only the subclass exposes it";
    EXPECT_FALSE(view.unbind("dirty"));
    EXPECT_TRUE(view.seen.isEmpty());
    EXPECT_EQ(observationCount(&model), 0);
    EXPECT_EQ(DerivedView().exposedBindings(), (QStringList{"playbackSpeed", "dirty"}));
}

TEST(SBindingView, AViewThatDoesNotReactFailsItsFirstBind) {
    Model model;
    ForgetfulView view;
    try {
        view.bind("value", &model, "speed");
        ADD_FAILURE() << "no assertion failed";
    } catch (const test::AssertionFailed& caught) {
        EXPECT_EQ(caught.failure.description, "abstract impl!");
        EXPECT_EQ(caught.failure.file, "SBindingView");
        EXPECT_EQ(caught.failure.line, 43);
    }
}

#include "SBindingViewTest.moc"
