#include "window/SongViews.h"

#include "audio/TeskExtendedAudioFilePlayer.h"
#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "controls/SBindingView.h"
#include "document/TeskDocument.h"
#include "effects/TeskEffectsViewController.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"

#include <QHBoxLayout>
#include <QVBoxLayout>
#include <chrono>

namespace tesk {

namespace {
const QStringList kMarkerKeys{"genericMarkers", "chorusMarkers", "verseMarkers", "bridgeMarkers"};

} // namespace

SongViews::SongViews(TeskDocument* document, QWidget* parent)
    : QObject(parent)
    , mDocument(document) {
    // The transport panel: the time, the speed/pitch switch, and the control it selects.
    mTransportPanel = new QWidget(parent);
    mTransportPanel->setObjectName(QStringLiteral("transportPanel"));
    mTransportPanel->setAttribute(Qt::WA_StyledBackground);
    mTransportPanel->setStyleSheet(QStringLiteral(
        "#transportPanel { background: rgba(20, 22, 26, 217); border-radius: 10px; }"));
    auto* panelRow = new QHBoxLayout(mTransportPanel);
    // The time display's digits stay 14 points in, with the room for their glow before them.
    panelRow->setContentsMargins(14 - HUDTimeDisplayView::kLeftRoom, 8, 14, 8);
    panelRow->setSpacing(10);
    mTimeDisplay = new HUDTimeDisplayView(mTransportPanel);
    mSwitchControl = new HUDSwitchControlView(mTransportPanel);
    mControlHolder = new QWidget(mTransportPanel);
    mControlHolder->setFixedSize(190, 56);
    mSpeedControl = new HUDSpeedControlView(mControlHolder);
    mPitchControl = new HUDPitchControlView(mControlHolder);
    panelRow->addWidget(mTimeDisplay, 0, Qt::AlignVCenter);
    panelRow->addWidget(mSwitchControl, 0, Qt::AlignVCenter);
    panelRow->addWidget(mControlHolder, 0, Qt::AlignVCenter);
    connect(mSwitchControl, &HUDSwitchControlView::activated, this,
            &SongViews::controlSwitchChanged);
    controlSwitchChanged();

    mWaveformArea = new QWidget(parent);
    auto* column = new QVBoxLayout(mWaveformArea);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    mWaveformView = new WaveformView(mWaveformArea);
    mWaveformView->setMinimumHeight(180);
    mScroller = new TeskScroller(mWaveformArea);
    column->addWidget(mWaveformView, 1);
    column->addWidget(mScroller);
    connect(mScroller, &TeskScroller::pageRequested, mWaveformView, [this](int direction) {
        direction < 0 ? mWaveformView->scrollPageLeft() : mWaveformView->scrollPageRight();
    });
    // The time shows where the play head is; its tip, how long the song is.
    connect(mWaveformView, &WaveformView::frameCountChanged, this, [this] {
        mTimeDisplay->setToolTip(
            tr("Song length %1")
                .arg(TransportRules::timeString(
                    TransportRules::millisecondsForFrame(mWaveformView->frameCount()))));
    });

    mEffectsPanel = new TeskEffectsViewController(parent);
    mEffectsPanel->setMinimumHeight(170);
}

SongViews::~SongViews() = default;

QWidget* SongViews::effectsPanel() const {
    return mEffectsPanel;
}

void SongViews::showControl(int switchState) {
    // A step from the keyboard or a menu shows the control it moves, whose value and bubble
    // then show where it went: a pitch changed under the speed control would show nowhere.
    if (mSwitchControl->switchState() == switchState)
        return;
    mSwitchControl->setSwitchState(switchState);
    controlSwitchChanged();
}

void SongViews::stepPitch(TransportRules::PitchStep step) {
    showControl(kPitchShown);
    mPitchControl->step(step);
}

void SongViews::controlSwitchChanged() {
    // The holder shows one control at a time, filling it.
    QWidget* shown = mSwitchControl->switchState() == 0 ? static_cast<QWidget*>(mSpeedControl)
                                                        : static_cast<QWidget*>(mPitchControl);
    QWidget* hidden = shown == mSpeedControl ? static_cast<QWidget*>(mPitchControl)
                                             : static_cast<QWidget*>(mSpeedControl);
    hidden->hide();
    shown->setGeometry(mControlHolder->rect());
    shown->show();
}

void SongViews::bind(WaveformViewDelegate* delegate) {
    mEffectsPanel->setRepresentedObject(mDocument->effectsSettings());
    mPitchControl->bind(QStringLiteral("dirty"), mSwitchControl, QStringLiteral("pitchDirty"));
    mSpeedControl->bind(QStringLiteral("dirty"), mSwitchControl, QStringLiteral("speedDirty"));
    mTimeDisplay->bind(QStringLiteral("currentFrame"), mDocument, QStringLiteral("currentFrame"));
    mSpeedControl->bind(QStringLiteral("playbackSpeed"), mDocument,
                        QStringLiteral("playbackSpeed"));
    mPitchControl->bind(QStringLiteral("pitchAdjustment"), mDocument,
                        QStringLiteral("pitchAdjustment"));
    mWaveformView->setDelegate(delegate);
    // The waveform reads the frames the player already decodes, rather than decoding the song a
    // second time; the binding then finds the same song and only follows later changes.
    if (const TeskExtendedAudioFilePlayer* player = mDocument->player();
        player && player->audioFile())
        mWaveformView->setDecodedSong(player->audioFile(), mDocument->audioFileURL());
    mWaveformView->bind(QStringLiteral("fileURL"), mDocument, QStringLiteral("audioFileURL"));
    mWaveformView->bind(QStringLiteral("zoomLevel"), mDocument, QStringLiteral("zoomLevel"));
    for (const QString& key : kMarkerKeys) {
        mScroller->bind(key, mDocument, key);
        mWaveformView->bind(key, mDocument, key);
    }
    mWaveformView->bind(QStringLiteral("currentFrame"), mDocument, QStringLiteral("currentFrame"));
    mWaveformView->bind(QStringLiteral("loopRange"), mDocument, QStringLiteral("loopRange"));
    mScroller->bind(QStringLiteral("maxValue"), mWaveformView, QStringLiteral("frameCount"));
    mScroller->bind(QStringLiteral("knobProportion"), mWaveformView,
                    QStringLiteral("visibleProportion"));
    mScroller->bind(QStringLiteral("value"), mWaveformView, QStringLiteral("scrollPosition"));
    mScroller->bind(QStringLiteral("dragging"), mWaveformView, QStringLiteral("scrollerDragging"));
}

void SongViews::unbind() {
    // Every bound view, wherever it sits (the hidden one of speed and pitch included), lets go
    // of the document: the views may outlive it by a turn of the event loop.
    QList<SBindingView*> views;
    for (QWidget* root : {mTransportPanel, mWaveformArea, static_cast<QWidget*>(mEffectsPanel)}) {
        if (auto* view = qobject_cast<SBindingView*>(root))
            views.append(view);
        views.append(root->findChildren<SBindingView*>());
    }
    for (SBindingView* view : views) {
        for (const QString& binding : view->bindingsManager().boundBindings())
            view->unbind(binding);
    }
    mWaveformView->setDelegate(nullptr);
    mEffectsPanel->setRepresentedObject(nullptr);
}

bool SongViews::canIncreaseSpeed() const {
    return mSpeedControl->canIncrementPlaybackSpeed();
}
bool SongViews::canDecreaseSpeed() const {
    return mSpeedControl->canDecrementPlaybackSpeed();
}
bool SongViews::canIncreasePitch() const {
    return mPitchControl->canIncreasePitch();
}
bool SongViews::canDecreasePitch() const {
    return mPitchControl->canDecreasePitch();
}

void SongViews::perform(WindowCommand command) {
    using C = WindowCommand;
    WaveformView* view = mWaveformView;
    switch (command) {
    case C::Rewind:
        view->rewind();
        break;
    case C::FastForward:
        view->fastForward();
        break;
    case C::JumpToBeginning:
        view->jumpToBeginning();
        break;
    case C::JumpToEnd:
        view->jumpToEnd();
        break;
    case C::JumpToNextMarker:
        view->jumpToNextMarker();
        break;
    case C::JumpToPreviousMarker:
        view->jumpToPreviousMarker();
        break;
    case C::JumpToNextHighLevelMarker:
        view->jumpToNextHighLevelMarker();
        break;
    case C::JumpToPreviousHighLevelMarker:
        view->jumpToPreviousHighLevelMarker();
        break;
    case C::SelectAll:
        view->selectAll();
        break;
    case C::ClearSelection:
        view->clearSelection();
        break;
    case C::ZoomToFitLoop:
        view->zoomToFitLoop();
        break;
    case C::IncreaseSpeed:
    case C::DecreaseSpeed:
        showControl(kSpeedShown);
        if (command == C::IncreaseSpeed)
            mSpeedControl->incrementPlaybackSpeed();
        else
            mSpeedControl->decrementPlaybackSpeed();
        break;
    case C::IncreasePitch:
        stepPitch(TransportRules::PitchStep::Up);
        break;
    case C::DecreasePitch:
        stepPitch(TransportRules::PitchStep::Down);
        break;
    case C::IncreasePitchFinely:
        stepPitch(TransportRules::PitchStep::UpFinely);
        break;
    case C::DecreasePitchFinely:
        stepPitch(TransportRules::PitchStep::DownFinely);
        break;
    case C::IncreasePitchByOneOctave:
        stepPitch(TransportRules::PitchStep::UpOctave);
        break;
    case C::DecreasePitchByOneOctave:
        stepPitch(TransportRules::PitchStep::DownOctave);
        break;
    case C::ResetPitch:
        stepPitch(TransportRules::PitchStep::Reset);
        break;
    default:
        break;
    }
}

void SongViews::playingChanged(bool playing, bool looping) {
    mWaveformView->setPlaying(playing);
    mWaveformView->setLooping(looping);
    if (playing)
        mEffectsPanel->setFrequencyTable(mDocument->frequencyTable());
    if (!playing) {
        mWaveformView->playheadClock().reset();
        mWaveformView->setCurrentFrame(mDocument->currentFrame());
    }
    updateHUD();
}

void SongViews::updateHUD() {
    mTimeDisplay->setCurrentFrame(mDocument->currentFrame());
    if (!mEffectsPanel->isVisible())
        return;
    mEffectsPanel->setFrequencyResponse(mDocument->frequencyResponseForChannel(0), 0);
    mEffectsPanel->setFrequencyResponse(mDocument->frequencyResponseForChannel(1), 1);
    mEffectsPanel->refreshFrequencyDisplays();
}

void SongViews::updatePlayHead() {
    // Looping stops without playback stopping when the loop is cleared or emptied.
    mWaveformView->setLooping(mDocument->isLooping());
    const TeskExtendedAudioFilePlayer* player = mDocument->player();
    const auto report = player ? player->heardPosition() : std::nullopt;
    if (!report) {
        mWaveformView->setCurrentFrame(mDocument->currentFrame());
        return;
    }
    mWaveformView->playheadClock().setLoop(mDocument->loopRange(), mDocument->isLooping());
    mWaveformView->playheadClock().report(*report);
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::steady_clock::now().time_since_epoch())
                         .count();
    mWaveformView->advancePlayhead(now);
}

} // namespace tesk
