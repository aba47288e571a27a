#include "window/SongViews.h"

#include "audio/TeskExtendedAudioFilePlayer.h"
#include "controls/SBindingView.h"
#include "document/TeskDocument.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"

#include <QLabel>
#include <QVBoxLayout>
#include <chrono>

namespace tesk {

namespace {
const QStringList kMarkerKeys{"genericMarkers", "chorusMarkers", "verseMarkers", "bridgeMarkers"};

QString timeText(qint64 frame) {
    const qint64 milliseconds = frame * 1000 / 44100;
    return QStringLiteral("%1:%2.%3")
        .arg(milliseconds / 60000, 2, 10, QLatin1Char('0'))
        .arg(milliseconds / 1000 % 60, 2, 10, QLatin1Char('0'))
        .arg(milliseconds % 1000, 3, 10, QLatin1Char('0'));
}
} // namespace

SongViews::SongViews(TeskDocument* document, QWidget* parent)
    : QObject(parent)
    , mDocument(document) {
    // The transport panel: the play position for now; the speed and pitch controls join it.
    mTransportPanel = new QWidget(parent);
    mTransportPanel->setObjectName(QStringLiteral("transportPanel"));
    mTransportPanel->setStyleSheet(QStringLiteral(
        "#transportPanel { background: rgba(20, 22, 26, 217); border-radius: 10px; }"));
    mTransportPanel->setFixedSize(420, 84);
    auto* panelLayout = new QVBoxLayout(mTransportPanel);
    mTimeLabel = new QLabel(timeText(0), mTransportPanel);
    QFont digits = mTimeLabel->font();
    digits.setPixelSize(30);
    digits.setStyleHint(QFont::Monospace);
    digits.setFamily(QStringLiteral("monospace"));
    mTimeLabel->setFont(digits);
    mTimeLabel->setStyleSheet(QStringLiteral("color: rgb(217, 238, 254);"));
    mTimeLabel->setAccessibleName(tr("Time"));
    panelLayout->addWidget(mTimeLabel, 0, Qt::AlignLeft | Qt::AlignVCenter);

    mWaveformArea = new QWidget(parent);
    auto* column = new QVBoxLayout(mWaveformArea);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    mWaveformView = new WaveformView(mWaveformArea);
    mWaveformView->setMinimumHeight(180);
    mScroller = new TeskScroller(mWaveformArea);
    column->addWidget(mWaveformView, 1);
    column->addWidget(mScroller);

    mEffectsPanel = new QWidget(parent);
    mEffectsPanel->setMinimumHeight(170);
}

SongViews::~SongViews() = default;

void SongViews::bind(WaveformViewDelegate* delegate) {
    mWaveformView->setDelegate(delegate);
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
    for (SBindingView* view :
         {static_cast<SBindingView*>(mScroller), static_cast<SBindingView*>(mWaveformView)}) {
        for (const QString& binding : view->exposedBindings())
            view->unbind(binding);
    }
    mWaveformView->setDelegate(nullptr);
}

bool SongViews::canIncreaseSpeed() const {
    return false; // until the speed control is in the panel
}
bool SongViews::canDecreaseSpeed() const {
    return false;
}
bool SongViews::canIncreasePitch() const {
    return false; // until the pitch control is in the panel
}
bool SongViews::canDecreasePitch() const {
    return false;
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
    default:
        break;
    }
}

void SongViews::playingChanged(bool playing, bool looping) {
    mWaveformView->setPlaying(playing);
    mWaveformView->setLooping(looping);
    if (!playing) {
        mWaveformView->playheadClock().reset();
        mWaveformView->setCurrentFrame(mDocument->currentFrame());
    }
    updateHUD();
}

void SongViews::updateHUD() {
    mTimeLabel->setText(timeText(mDocument->currentFrame()));
}

void SongViews::updatePlayHead() {
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
