#include "waveform/WaveformView.h"

#include "observation/KeyValueObserving.h"
#include "waveform/PeakColumns.h"
#include "waveform/WaveformPalette.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include "waveform/WaveformAccessibility.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleHints>
#include <QTimer>
#include <QToolTip>
#include <QWheelEvent>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace tesk {

namespace {

/// A marker dragged further than this above or below its strip is deleted on release.
constexpr qreal kMarkerKeepMargin = 16.0;
/// Frames between a marker and the play position within which "previous marker" while
/// playing goes one further back: half a second and a frame.
constexpr qint64 kPreviousMarkerGrace = 22051;
/// The most a drag past an edge scrolls per move, in points.
constexpr qreal kEdgeScrollPoints = 40.0;
/// The lines of a loop edge's grip.
const QColor kKnobGripColour(0x35, 0x62, 0x9a);

qint64 steadyMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const NamedImage& loopButtonImage(bool playing, bool pressed) {
    static const char* const names[2][2] = {{"LoopPlayN", "LoopPlayP"},
                                            {"LoopPauseN", "LoopPauseP"}};
    return NamedImage::named(QString::fromLatin1(names[playing][pressed]));
}

/// Fills `rect` with the part of a vertical gradient over `full` that it covers, from a column
/// of pixels drawn once per gradient, height and ratio: stretching a column is several times
/// cheaper than filling with a gradient brush.
void fillGradient(QPainter& painter, const QRectF& rect, const QRectF& full,
                  const GradientStops& stops, qreal ratio) {
    static QHash<QString, QImage> columns;
    const int height = std::max(1, int(std::ceil(full.height() * ratio)));
    const QString key =
        QString("%1 %2 %3 %4")
            .arg(stops.top.name(QColor::HexArgb), stops.bottom.name(QColor::HexArgb))
            .arg(height)
            .arg(ratio);
    auto found = columns.find(key);
    if (found == columns.end()) {
        QImage column(1, height, QImage::Format_ARGB32_Premultiplied);
        column.fill(Qt::transparent);
        QPainter columnPainter(&column);
        columnPainter.fillRect(QRect(0, 0, 1, height), stops.over(QRectF(0, 0, 1, height)));
        columnPainter.end();
        found = columns.insert(key, column);
    }
    const QRectF source(0, (rect.top() - full.top()) * ratio, 1, rect.height() * ratio);
    painter.drawImage(rect, *found, source);
}

/// The pointer over a marker that will be deleted when released: a small grey puff.
const QCursor& disappearingItemCursor() {
    static const QCursor cursor = [] {
        QPixmap pixmap(24, 24);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(QColor(60, 60, 60), 1.0));
        painter.setBrush(QColor(235, 235, 235));
        QPainterPath puff;
        puff.addEllipse(QRectF(3, 8, 10, 10));
        puff.addEllipse(QRectF(8, 4, 11, 11));
        puff.addEllipse(QRectF(11, 10, 10, 9));
        painter.drawPath(puff.simplified());
        painter.setPen(QPen(QColor(60, 60, 60), 1.6));
        painter.drawLine(QPointF(9.5, 9.5), QPointF(14.5, 14.5));
        painter.drawLine(QPointF(14.5, 9.5), QPointF(9.5, 14.5));
        painter.end();
        return QCursor(pixmap, 12, 12);
    }();
    return cursor;
}

} // namespace

WaveformView::WaveformView(QWidget* parent)
    : SBindingView(parent)
    , mClock(steadyMilliseconds) {
    installWaveformAccessibility();
    connect(this, &WaveformView::currentFrameChanged, this, &WaveformView::refreshSpokenValue);
    connect(this, &WaveformView::loopRangeChanged, this, &WaveformView::refreshSpokenValue);
    refreshSpokenValue();
    mButtonBounce = new QVariantAnimation(this);
    connect(mButtonBounce, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        mButtonScale = value.toDouble();
        update(loopButtonUpdateRect());
    });
    mEdgeScrollTimer = new QTimer(this);
    mEdgeScrollTimer->setInterval(30);
    connect(mEdgeScrollTimer, &QTimer::timeout, this, [this] {
        if (mGesture == Gesture::None || mGesture == Gesture::LoopButton)
            mEdgeScrollTimer->stop();
        else
            dragTo(mPointer);
    });
    mPoof = new QVariantAnimation(this);
    mPoof->setStartValue(0.0);
    mPoof->setEndValue(1.0);
    mPoof->setDuration(250);
    connect(mPoof, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        mPoofProgress = value.toDouble();
        update(poofRect());
    });
    connect(mPoof, &QVariantAnimation::finished, this, [this] {
        mPoofProgress = -1.0;
        update(poofRect());
    });
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setCursor(Qt::CrossCursor);
    setMinimumHeight(kRulerHeight + kMarkerStripHeight + 40);
}

WaveformView::~WaveformView() {
    if (mWaveform)
        mWaveform->setDelegate(nullptr);
}

QStringList WaveformView::exposedBindings() const {
    return SBindingView::exposedBindings() +
           QStringList{"currentFrame",   "loopRange",     "fileURL",
                       "genericMarkers", "chorusMarkers", "verseMarkers",
                       "bridgeMarkers",  "visibleFrames", "zoomLevel"};
}

void WaveformView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                  const QString& binding) {
    const QVariant value = valueForKeyPath(object, keyPath);
    if (binding == "currentFrame") {
        if (!mScrubbing)
            setCurrentFrame(qint64(value.toUInt()));
    } else if (binding == "fileURL") {
        setFileURL(value.toUrl());
    } else if (binding == "loopRange") {
        // Changed under a drag (an undo): Escape goes back to it, not to the loop at the press.
        mLoopBeforeDrag = value.value<LoopRange>();
        setLoopRange(value.value<LoopRange>());
    } else if (binding == "zoomLevel") {
        setZoomLevel(value.toDouble());
    } else {
        for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind) {
            if (binding == bindingNameForType(kind))
                setMarkers(value.value<QList<quint32>>(), kind);
        }
    }
}

// The song.

QUrl WaveformView::fileURL() const {
    return mWaveform ? mWaveform->fileURL() : QUrl();
}

void WaveformView::setFileURL(const QUrl& url) {
    if (url.isEmpty() || (mWaveform && mWaveform->fileURL() == url))
        return;
    replaceWaveform(std::make_unique<Waveform>(url, static_cast<WaveformDelegate*>(this)));
}

void WaveformView::setDecodedSong(std::shared_ptr<const DecodedFrames> frames, const QUrl& url) {
    replaceWaveform(
        std::make_unique<Waveform>(std::move(frames), url, static_cast<WaveformDelegate*>(this)));
}

void WaveformView::replaceWaveform(std::unique_ptr<Waveform> waveform) {
    if (mWaveform)
        mWaveform->setDelegate(nullptr);
    mWaveform = std::move(waveform);
    mStripCache.invalidate();
    update();
}

void WaveformView::waveformDidBeginScanningFile(Waveform* waveform) {
    mGeometry.frameCount = waveform->totalFrameCount();
    mGeometry.updateMaximumZoomLevel();
    emit frameCountChanged();
    geometryDidChange();
}

void WaveformView::waveformDidLearnFrameCount(Waveform* waveform) {
    // The length guessed at the start was wrong: the song's end moves to where it really is.
    waveformDidBeginScanningFile(waveform);
}

void WaveformView::waveformDidFinishScanning(Waveform*) {
    if (mDelegate)
        mDelegate->waveformViewDidReadWholeSong(this);
}

void WaveformView::waveformHasAvailableFrames(Waveform*, FrameRange frames) {
    // Only the columns the new frames reach, and a point either side, whose peaks may span
    // blocks: zoomed out, a block is a column or less, and the whole view drawn again for each
    // (markers and all) slowed the reading of a long song by half.
    const qreal from = std::floor(mGeometry.pointFromSample(frames.location)) - 1.0;
    const qreal to = std::ceil(mGeometry.pointFromSample(frames.location + frames.length)) + 1.0;
    const qreal visibleLeft = mGeometry.visibleStartPoint();
    if (to < visibleLeft || from > visibleLeft + mGeometry.width)
        return;
    const qreal ratio = this->ratio();
    mStripCache.invalidate(
        QRect(QPoint(int(std::floor(from * ratio)), 0),
              QPoint(int(std::ceil(to * ratio)), int(std::ceil(height() * ratio)))));
    update(QRectF(from - shift(), 0, to - from, height()).toAlignedRect());
}

// Values.

void WaveformView::setStartFrame(qint64 frame) {
    if (frame == mGeometry.startFrame)
        return;
    const qreal oldShift = shift();
    mGeometry.startFrame = frame;
    emit startFrameChanged();
    emit scrollPositionChanged();
    if (shift() != oldShift) {
        update();
        // The whole view paints the play position where it now stands: the next move repaints
        // that place, not the one before the scroll.
        mPaintedCursorX = cursorX();
    }
}

void WaveformView::setCurrentFrame(qint64 frame, bool notifyObserver) {
    if (frame != mCurrentFrame) {
        mCurrentFrame = frame;
        emit currentFrameChanged();
        // While anything is dragged the view holds still but at its edges: following the sound
        // would scroll the view away under the pointer, and what it holds with it (the play
        // head too, while the song plays on).
        if (!mScrubbing) {
            const float cursor = std::floor(mGeometry.pointFromSample(frame));
            const float left = mGeometry.visibleStartPoint();
            const bool outside = cursor < left || cursor > left + float(mGeometry.width);
            if (mGesture == Gesture::None && (mPlaying || outside))
                updateVisibleRegion();
            updateCursorPosition();
        }
    }
    if (notifyObserver)
        updateObservableObjectForBindingName("currentFrame", QVariant::fromValue<qint64>(frame));
}

void WaveformView::setZoomLevel(double level) {
    if (level == mGeometry.zoomLevel)
        return;
    mGeometry.zoomLevel = level;
    mReturnAdjustFramesCount = 0;
    emit zoomLevelChanged();
    geometryDidChange();
    updateVisibleRegion();
}

void WaveformView::geometryDidChange() {
    mStripCache.invalidate();
    emit geometryChanged();
    emit scrollPositionChanged();
    mPaintedCursorX = cursorX();
    update();
}

void WaveformView::setScrollPosition(double position) {
    WaveformGeometry geometry = mGeometry;
    geometry.setScrollPosition(position);
    setStartFrame(geometry.startFrame);
}

void WaveformView::setScrollerDragging(bool dragging) {
    if (dragging == mScrollerDragging)
        return;
    mScrollerDragging = dragging;
    emit scrollerDraggingChanged();
}

void WaveformView::setPlaying(bool playing) {
    if (playing == mPlaying)
        return;
    mPlaying = playing;
    emit playingChanged();
    if (isLoopEnabled())
        update(loopButtonUpdateRect());
}

void WaveformView::setLooping(bool looping) {
    if (looping == mLooping)
        return;
    mLooping = looping;
    mLoopButtonPressed = false;
    emit loopingChanged();
    if (isLoopEnabled())
        update(loopButtonUpdateRect());
}

void WaveformView::setLoopRange(LoopRange range, bool notifyObserver) {
    if (!(range == mLoopRange)) {
        // The band, its knobs and its button move; the waveform under them stays as it is.
        QRegion changed = loopChangeRegion(mLoopRange, range) + loopButtonUpdateRect();
        mLoopRange = range;
        changed += loopButtonUpdateRect();
        emit loopRangeChanged();
        update(changed);
    }
    if (notifyObserver)
        updateObservableObjectForBindingName("loopRange", QVariant::fromValue(range));
}

void WaveformView::refreshSpokenValue() {
    // Told when the words change, at most once a second while playing.
    QList<int> markersHere;
    for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind) {
        if (mCurrentFrame >= 0 && mMarkers[kind].contains(quint32(mCurrentFrame)))
            markersHere.append(int(kind));
    }
    const QString spoken = spokenPlayPosition(mCurrentFrame, mLoopRange, markersHere);
    if (spoken == accessibleDescription())
        return;
    setAccessibleDescription(spoken); // which tells of the new words
    QAccessibleValueChangeEvent event(this, playPositionSeconds(mCurrentFrame));
    QAccessible::updateAccessibility(&event);
}

// Following the play position.

void WaveformView::updateVisibleRegion() {
    FollowState state{mCurrentFrame, mLoopRange, mScrollerDragging, mReturnAdjustFramesCount};
    const qint64 now = mClock();
    if (mLastFollowMs >= 0)
        state.easePoints = easePointsForUpdate(double(now - mLastFollowMs) / 1000.0);
    mLastFollowMs = now;
    const std::optional<qint64> start = followPlayPosition(mGeometry, state);
    mReturnAdjustFramesCount = state.returnAdjustFramesCount;
    if (start)
        setStartFrame(*start);
}

QRect WaveformView::cursorUpdateRect(qreal x) const {
    return QRect(int(std::floor(x)) - 5, 0, 11, height());
}

QRect WaveformView::loopButtonUpdateRect() const {
    const QRectF button = loopButtonHitRect();
    return button.isEmpty() ? QRect() : button.adjusted(-4, -4, 4, 4).toAlignedRect();
}

void WaveformView::setLoopButtonRightAligned(bool rightAligned) {
    if (rightAligned == mLoopButtonRightAligned)
        return;
    update(loopButtonUpdateRect());
    mLoopButtonRightAligned = rightAligned;
    update(loopButtonUpdateRect());
}

QRegion WaveformView::loopChangeRegion(LoopRange from, LoopRange to) const {
    // A loop that is not drawn changes what lies between the other loop's edges.
    if (from.length == 0 && to.length == 0)
        return {};
    if (from.length == 0)
        from = {to.location, 0};
    if (to.length == 0)
        to = {from.location, 0};
    const QRectF band = waveformRect();
    const QRectF before = mGeometry.loopRect(from, band.top(), band.height());
    const QRectF after = mGeometry.loopRect(to, band.top(), band.height());
    // A knob's whole width either side covers the knob centred on the edge, at any rounding.
    const qreal knob = NamedImage::named("SelectorKnob").width();
    QRegion region;
    for (const auto& [was, is] :
         {std::pair(before.left(), after.left()), std::pair(before.right(), after.right())}) {
        const qreal left = std::min(was, is) - knob - shift();
        const qreal right = std::max(was, is) + knob - shift();
        region += QRectF(left, 0, right - left, height()).toAlignedRect();
    }
    return region & rect();
}

void WaveformView::updateCursorPosition() {
    const qreal x = cursorX();
    if (x == mPaintedCursorX)
        return;
    update(cursorUpdateRect(mPaintedCursorX));
    update(cursorUpdateRect(x));
    mPaintedCursorX = x;
}

void WaveformView::advancePlayhead(std::int64_t steadyTimeNs) {
    mPlayheadClock.setLoop(mLoopRange, mLooping);
    if (const std::optional<double> frame = mPlayheadClock.frameAt(steadyTimeNs))
        setCurrentFrame(qint64(*frame));
}

// Markers.

QList<quint32> WaveformView::markersForType(std::uint32_t kind) const {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return mMarkers[kind];
}

void WaveformView::setMarkers(const QList<quint32>& markers, std::uint32_t kind) {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    mMarkers[kind] = markers;
    if (mGesture == Gesture::Marker && mDraggedKind == kind)
        mGesture = Gesture::None;
    updateMarkersOfType(kind);
    refreshSpokenValue();
}

void WaveformView::updateMarkersOfType(std::uint32_t kind) {
    std::vector<MarkerItem>& items = mMarkerItems[kind];
    items.clear();
    for (const quint32 frame : mMarkers[kind])
        items.push_back(MarkerItem{kind, frame, false, std::nullopt, 1.0});
    update(markerStripRect().toAlignedRect().adjusted(0, 0, 0, 1));
}

QList<quint32> WaveformView::allMarkers() const {
    QList<quint32> all;
    for (const QList<quint32>& markers : mMarkers)
        all += markers;
    std::sort(all.begin(), all.end());
    return all;
}

QList<quint32> WaveformView::highLevelMarkers() const {
    QList<quint32> all = mMarkers[1] + mMarkers[2] + mMarkers[3];
    std::sort(all.begin(), all.end());
    return all;
}

LoopRange WaveformView::markerBoundedLoopRangeForSample(qint64 frame) const {
    qint64 start = 0;
    bool before = false;
    for (const quint32 marker : allMarkers()) {
        if (marker <= frame) {
            start = marker;
            before = true;
        } else {
            return LoopRange{std::uint32_t(start), std::uint32_t(marker - start)};
        }
    }
    if (!before)
        return {};
    return LoopRange{std::uint32_t(start),
                     std::uint32_t(std::max<qint64>(0, mGeometry.frameCount - start))};
}

void WaveformView::writeMarkers(std::uint32_t kind, const QList<quint32>& markers) {
    mMarkers[kind] = markers;
    updateMarkersOfType(kind);
    updateObservableObjectForBindingName(bindingNameForType(kind), QVariant::fromValue(markers));
}

// Commands.

void WaveformView::scrollPageLeft() {
    setStartFrame(mGeometry.pageLeftStartFrame());
}
void WaveformView::scrollPageRight() {
    setStartFrame(mGeometry.pageRightStartFrame());
}

void WaveformView::zoomToFitLoop() {
    const double level = mGeometry.loopZoomLevel(mLoopRange.length);
    setZoomLevel(level);
    updateObservableObjectForBindingName("zoomLevel", level);
    setStartFrame(qint64(mLoopRange.location) +
                  mGeometry.sampleFromPoint(mGeometry.width * 0.5 - 20.0));
}

void WaveformView::jumpTo(qint64 frame, Qt::KeyboardModifiers modifiers) {
    if (modifiers & Qt::ShiftModifier)
        extendLoopToNewFrame(frame);
    setCurrentFrame(frame, true);
}

void WaveformView::rewind(Qt::KeyboardModifiers modifiers) {
    jumpTo(mCurrentFrame - WaveformGeometry::kFramesPerSecond, modifiers);
}
void WaveformView::fastForward(Qt::KeyboardModifiers modifiers) {
    jumpTo(mCurrentFrame + WaveformGeometry::kFramesPerSecond, modifiers);
}
void WaveformView::jumpToBeginning(Qt::KeyboardModifiers modifiers) {
    jumpTo(0, modifiers);
}
void WaveformView::jumpToEnd(Qt::KeyboardModifiers modifiers) {
    jumpTo(mGeometry.frameCount, modifiers);
}
void WaveformView::jumpToNextMarker(Qt::KeyboardModifiers modifiers) {
    jumpToNextMarkerInList(allMarkers(), modifiers);
}
void WaveformView::jumpToPreviousMarker(Qt::KeyboardModifiers modifiers) {
    jumpToPreviousMarkerInList(allMarkers(), modifiers);
}
void WaveformView::jumpToNextHighLevelMarker(Qt::KeyboardModifiers modifiers) {
    jumpToNextMarkerInList(highLevelMarkers(), modifiers);
}
void WaveformView::jumpToPreviousHighLevelMarker(Qt::KeyboardModifiers modifiers) {
    jumpToPreviousMarkerInList(highLevelMarkers(), modifiers);
}

void WaveformView::jumpToNextMarkerInList(const QList<quint32>& markers,
                                          Qt::KeyboardModifiers modifiers) {
    for (const quint32 marker : markers) {
        if (qint64(marker) > mCurrentFrame)
            return jumpTo(marker, modifiers);
    }
    jumpToEnd(modifiers);
}

void WaveformView::jumpToPreviousMarkerInList(const QList<quint32>& markers,
                                              Qt::KeyboardModifiers modifiers) {
    for (auto it = markers.crbegin(); it != markers.crend(); ++it) {
        const qint64 marker = *it;
        if (marker >= mCurrentFrame)
            continue;
        if (mPlaying && mCurrentFrame - marker < kPreviousMarkerGrace)
            continue;
        return jumpTo(marker, modifiers);
    }
    jumpTo(0, modifiers);
}

void WaveformView::extendLoopToNewFrame(qint64 frame) {
    setLoopRange(tesk::extendLoopToNewFrame(mLoopRange, mCurrentFrame, frame, frameCount(),
                                            mSelectionAnchorFrame),
                 true);
}

void WaveformView::selectAll() {
    if (mWaveform)
        setLoopRange(LoopRange{0, std::uint32_t(mGeometry.frameCount)}, true);
}

void WaveformView::clearSelection() {
    setLoopRange(LoopRange{}, true);
}

// Places.

QRectF WaveformView::rulerRect() const {
    return QRectF(0, 0, width(), kRulerHeight);
}

QRectF WaveformView::markerStripRect() const {
    return QRectF(0, kRulerHeight, width(), kMarkerStripHeight);
}

QRectF WaveformView::waveformRect() const {
    const qreal top = kRulerHeight + kMarkerStripHeight;
    return QRectF(0, top, width(), std::max<qreal>(0, height() - top));
}

qreal WaveformView::shift() const {
    const qreal ratio = this->ratio();
    return std::round(qreal(mGeometry.visibleStartPoint()) * ratio) / ratio;
}

qreal WaveformView::cursorX() const {
    // The song's last frame lies one point past the view scrolled to its end: the play head
    // there is shown in the last column. Anywhere else past the edge it is out of sight. The
    // left edge rounded to whole device pixels can put it up to half a device pixel further.
    const qreal x = std::floor(mGeometry.pointFromSample(mCurrentFrame)) + 0.5 - shift();
    const qreal lastColumn = std::floor(mGeometry.width) - 0.5;
    const bool justPast = x > lastColumn && x <= lastColumn + 1.0 + 0.5 / ratio();
    return mCurrentFrame >= mGeometry.frameCount && justPast ? lastColumn : x;
}

QRectF WaveformView::visibleLoopRect() const {
    if (!isLoopEnabled())
        return {};
    const QRectF band = waveformRect();
    const QRectF loop = mGeometry.loopRect(mLoopRange, band.top(), band.height());
    return loop.intersected(
        QRectF(mGeometry.visibleStartPoint(), band.top(), band.width(), band.height()));
}

QRectF WaveformView::leftLoopHitRect() const {
    const QRectF band = waveformRect();
    const QRectF loop = mGeometry.loopRect(mLoopRange, band.top(), band.height());
    return QRectF(loop.left() - 3.0 - shift(), band.top(), 6.0, band.height());
}

QRectF WaveformView::rightLoopHitRect() const {
    const QRectF band = waveformRect();
    const QRectF loop = mGeometry.loopRect(mLoopRange, band.top(), band.height());
    return QRectF(loop.right() - 3.0 - shift(), band.top(), 6.0, band.height());
}

QRectF WaveformView::middleLoopHitRect() const {
    const QRectF left = leftLoopHitRect();
    const QRectF right = rightLoopHitRect();
    return QRectF(left.right(), left.top(), std::max<qreal>(0, right.left() - left.right()),
                  left.height());
}

QRectF WaveformView::loopButtonHitRect() const {
    const QRectF loop = visibleLoopRect();
    if (!isLoopEnabled() || loop.isEmpty())
        return {};
    const QSizeF size = NamedImage::named("LoopPlayN").size();
    const QPointF topLeft = loopButtonPosition(loop, size, mLoopButtonRightAligned,
                                               mGeometry.pointFromSample(mGeometry.frameCount));
    return QRectF(topLeft - QPointF(shift(), 0), size);
}

QRectF WaveformView::markerRect(const MarkerItem& item) const {
    const NamedImage& image = markerImageForType(item.kind);
    const qreal x = item.dragX ? *item.dragX
                               : std::floor(mGeometry.pointFromSample(item.frame)) -
                                     std::floor(image.width() * 0.5);
    return QRectF(x - shift(), markerStripRect().top(), image.width(), image.height());
}

qint64 WaveformView::frameAtViewX(qreal x) const {
    return mGeometry.sampleFromPoint(qreal(mGeometry.visibleStartPoint()) + x);
}

// Painting.

void WaveformView::resizeEvent(QResizeEvent* event) {
    SBindingView::resizeEvent(event);
    mGeometry.width = width();
    if (mGeometry.frameCount > 0)
        mGeometry.updateMaximumZoomLevel();
    geometryDidChange();
}

void WaveformView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    paintView(painter, event->region(), devicePixelRatioF());
}

void WaveformView::redrawWaveform() {
    mStripCache.invalidate();
    update();
}

void WaveformView::paintView(QPainter& painter, const QRegion& clip, qreal devicePixelRatio) {
    mPaintRatio = devicePixelRatio;
    painter.save();
    painter.setClipRegion(clip);
    paintWaveform(painter);
    paintLoop(painter, clip);
    paintMarkers(painter);
    paintCursor(painter);
    paintLoopButton(painter);
    paintPoof(painter);
    paintFocusRing(painter);
    painter.restore();
    mPaintRatio = 0.0;
}

void WaveformView::drawWaveformStrip(QPainter& painter, const QRectF& strip, bool selected) {
    const WaveformPalette& palette = WaveformPalette::shared();
    const qreal h = waveformRect().height();
    const QRectF full(strip.left(), 0, strip.width(), h);
    fillGradient(painter, strip, full,
                 selected ? palette.selectedBackgroundGradient : palette.backgroundGradient,
                 ratio());
    // A line at every labelled second of the ruler.
    const qint64 step = mGeometry.idealSampleStep() * 10;
    const QLinearGradient lines =
        (selected ? palette.loopSecondMarkerGradient : palette.secondMarkerGradient).over(full);
    const qint64 last = mGeometry.sampleFromPoint(strip.right() + 1);
    for (qint64 frame = mGeometry.sampleFromPoint(strip.left() - 1) / step * step; frame <= last;
         frame += step) {
        const qreal x = std::floor(mGeometry.pointFromSample(frame));
        painter.fillRect(hairline(x, strip.top(), strip.height(), ratio()), lines);
    }
    if (mWaveform) {
        const QRectF wide(std::max<qreal>(0, strip.left() - 10), 0, strip.width() + 20, h);
        const std::optional<QPainterPath> peaks =
            mWaveform->createPathForRect(wide, mGeometry.maximumZoomLevel, mGeometry.zoomLevel);
        if (peaks) {
            const QPainterPath columns = peakColumns(*peaks, ratio());
            const qreal m = std::floor(h * 0.5);
            QPainterPath path = QTransform().translate(0, m).scale(1, -m).map(columns);
            path.addPath(QTransform().translate(0, m).scale(1, m).map(columns));
            painter.fillPath(
                path, (selected ? palette.selectedWaveformGradient : palette.waveformGradient)
                          .over(full));
        }
    }
    // The midline's two rows as thick as every other line, on whole device pixels.
    const QRectF dark = rowHairline(std::floor(h * 0.5) - 1, strip.left(), strip.width(), ratio());
    const QRectF light(dark.left(), dark.bottom(), dark.width(), dark.height());
    painter.fillRect(dark, selected ? palette.darkSelectedMidlineColor : palette.darkMidlineColor);
    painter.fillRect(light,
                     selected ? palette.lightSelectedMidlineColor : palette.lightMidlineColor);
}

void WaveformView::paintWaveform(QPainter& painter) {
    // The cache holds the ruler and the marker strip's background as well as the waveform:
    // all three scroll together, so a scroll draws the exposed strip of each.
    const qreal ratio = this->ratio();
    const QRectF band = waveformRect();
    const QRect cacheRect(int(std::lround(shift() * ratio)), 0, int(std::ceil(width() * ratio)),
                          int(std::ceil(height() * ratio)));
    if (cacheRect.isEmpty())
        return;
    const QRect dirty = mStripCache.prepare(cacheRect, ratio);
    if (!dirty.isEmpty()) {
        QPainter strip(&mStripCache.image());
        strip.translate(-cacheRect.x() / ratio, 0);
        const QRectF songStrip(dirty.x() / ratio, 0, dirty.width() / ratio, height());
        strip.setClipRect(songStrip);
        paintRuler(strip, songStrip);
        strip.translate(0, band.top());
        drawWaveformStrip(strip, QRectF(songStrip.left(), 0, songStrip.width(), band.height()),
                          false);
        mWaveformPixelsDrawn += qint64(dirty.width()) * dirty.height();
        ++mWaveformDraws;
    }
    painter.drawImage(QPointF(0, 0), mStripCache.image());
}

void WaveformView::paintRuler(QPainter& painter, const QRectF& clip) {
    const WaveformPalette& palette = WaveformPalette::shared();
    const QRectF ruler(clip.left(), 0, clip.width(), kRulerHeight + kMarkerStripHeight);
    fillGradient(painter, ruler, ruler, palette.backgroundGradient, ratio());
    painter.fillRect(
        rowHairline(kRulerHeight + kMarkerStripHeight - 1, clip.left(), clip.width(), ratio()),
        palette.timeIndicatorLineColor);
    if (mGeometry.frameCount <= 0)
        return;

    const qint64 step = mGeometry.idealSampleStep();
    // Start a label's width early, so a label whose tick is left of the clip still shows.
    const qint64 first = mGeometry.sampleFromPoint(clip.left() - 40) / step * step;
    // And a point late: at a fractional ratio a tick just past the clip reaches into its last
    // device pixel.
    const qint64 last = mGeometry.sampleFromPoint(clip.right() + 1);
    QFont font = this->font();
    font.setPixelSize(10);
    painter.setFont(font);
    QPainterPath ticks;
    for (qint64 frame = first; frame <= last; frame += step) {
        const bool major = frame % (10 * step) == 0;
        const qreal x = std::floor(mGeometry.pointFromSample(frame));
        const qreal tick = major ? 15 : 6;
        ticks.addRect(hairline(x, kRulerHeight - tick, tick, ratio()));
        if (!major)
            continue;
        const QString label = rulerLabel(frame);
        const QPointF at(x + 2, 11);
        painter.setPen(QColor(255, 255, 255, 200));
        painter.drawText(at + QPointF(0, 1), label);
        painter.setPen(palette.timeIndicatorTextColor);
        painter.drawText(at, label);
    }
    painter.fillPath(ticks, palette.timeIndicatorLineColor);
}

void WaveformView::paintLoop(QPainter& painter, const QRegion& clip) {
    if (!isLoopEnabled())
        return;
    const WaveformPalette& palette = WaveformPalette::shared();
    const QRectF band = waveformRect();
    const QRectF exact = mGeometry.loopRect(mLoopRange, band.top(), band.height());
    const qreal left = loopEdgeX(exact.left());
    const qreal right = loopEdgeX(exact.right());
    const QRectF loop(left, exact.top(), right - left, exact.height());
    painter.save();
    painter.translate(-shift(), 0);
    // The selected waveform is drawn only where the clip asks for it: a loop edge that moves
    // repaints the strips it swept, not the whole band.
    for (const QRect& rect : clip) {
        const QRectF shown = loop.intersected(QRectF(rect).translated(shift(), 0));
        if (shown.isEmpty())
            continue;
        painter.save();
        painter.setClipRect(shown);
        painter.translate(0, band.top());
        const QRectF strip = shown.translated(0, -band.top());
        drawWaveformStrip(painter, strip, true);
        // The lines along the loop's top and bottom, wherever the strip's own edges are.
        const qreal top = loop.top() - band.top();
        painter.fillRect(rowHairline(top, strip.left(), strip.width(), ratio()),
                         palette.loopToplineColor);
        painter.fillRect(rowHairline(top + loop.height() - 1, strip.left(), strip.width(), ratio()),
                         palette.loopBottomlineColor);
        painter.restore();
    }
    const bool pressedLeft = mGesture == Gesture::Loop && mResizing && mResizingLeft;
    const bool pressedRight = mGesture == Gesture::Loop && mResizing && !mResizingLeft;
    const NamedImage& knob = NamedImage::named("SelectorKnob");
    const NamedImage& knobPressed = NamedImage::named("SelectorKnobP");
    const qreal y = std::floor(loop.center().y() - knob.height() * 0.5);
    for (const qreal edge : {loop.left(), loop.right()}) {
        const qreal left = edge - std::floor(knob.width() * 0.5);
        const bool pressed = edge == loop.left() ? pressedLeft : pressedRight;
        (pressed ? knobPressed : knob).draw(painter, QPointF(left, y));
        // The grip's two lines, on whole device pixels at every ratio (in the picture, a line
        // one point wide would be a pixel and a half at 1.5, and blurred).
        for (const qreal line : {3.0, 5.0})
            painter.fillRect(hairline(left + line, y + 5, 6, ratio()), kKnobGripColour);
    }
    painter.restore();
}

qreal WaveformView::loopEdgeX(qreal point) const {
    // An edge begins where a line at its point would (see hairline), so a second's line there
    // lies wholly on one side. At 1.5 and 1.75 a line is two device pixels, more than a point,
    // and the line of the point before reaches a pixel past that: the edge then waits for it.
    const qreal edge = hairline(point, 0, 0, ratio()).left();
    const qreal endBefore = hairline(point - 1, 0, 0, ratio()).right();
    return endBefore > edge && hasSecondLineAt(point - 1) ? endBefore : edge;
}

bool WaveformView::hasSecondLineAt(qreal point) const {
    if (point < 0)
        return false;
    const qint64 step = mGeometry.idealSampleStep() * 10;
    const qint64 near = mGeometry.sampleFromPoint(point) / step * step;
    for (qint64 frame = near; frame <= near + step; frame += step)
        if (std::floor(mGeometry.pointFromSample(frame)) == point)
            return true;
    return false;
}

void WaveformView::paintMarkers(QPainter& painter) {
    QFont font = this->font();
    font.setPixelSize(9);
    font.setBold(true);
    font.setItalic(true);
    painter.setFont(font);
    // Only the flags in what is being painted: a strip of a long song zoomed out has hundreds.
    const QRectF shown = painter.hasClipping() ? painter.clipBoundingRect() : QRectF(rect());
    for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind) {
        const QString letter = charForMarkerType(kind);
        for (const MarkerItem& item : mMarkerItems[kind]) {
            const QRectF rect = markerRect(item);
            if (!rect.intersects(shown))
                continue;
            painter.setOpacity(item.opacity);
            (item.pressed ? pressedMarkerImageForType(kind) : markerImageForType(kind))
                .draw(painter, rect.topLeft());
            const QRectF flag(rect.left(), rect.top(), rect.width(), rect.height() - 4);
            painter.setPen(QColor(0, 0, 0, 90));
            painter.drawText(flag.translated(0, 1), Qt::AlignCenter, letter);
            painter.setPen(Qt::white);
            painter.drawText(flag, Qt::AlignCenter, letter);
        }
    }
    painter.setOpacity(1.0);
}

void WaveformView::paintCursor(QPainter& painter) {
    if (!mWaveform)
        return;
    const WaveformPalette& palette = WaveformPalette::shared();
    const qreal ratio = this->ratio();
    const QRectF line = hairline(cursorX() - 0.5, 0, height(), ratio);
    const qreal x = line.left();
    const qreal lineWidth = line.width();
    const bool inLoop = isLoopEnabled() && mCurrentFrame >= qint64(mLoopRange.location) &&
                        mCurrentFrame <= qint64(mLoopRange.location) + mLoopRange.length;
    const QColor colour = inLoop ? palette.loopCursorlineColor : palette.cursorlineColor;
    painter.fillRect(QRectF(x, 0, lineWidth, height()), colour);
    // The head in the ruler, darker while the user holds it.
    QPainterPath head;
    head.moveTo(x + lineWidth * 0.5 - 4.5, 0);
    head.lineTo(x + lineWidth * 0.5 + 4.5, 0);
    head.lineTo(x + lineWidth * 0.5, 6);
    head.closeSubpath();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.fillPath(head, mCursorPressed ? palette.loopCursorlineColor : colour);
    painter.setRenderHint(QPainter::Antialiasing, false);
}

void WaveformView::paintLoopButton(QPainter& painter) {
    const QRectF rect = loopButtonHitRect();
    if (rect.isEmpty())
        return;
    painter.save();
    painter.translate(rect.center());
    painter.scale(mButtonScale, mButtonScale);
    // Pause only while the loop itself plays: during plain playback a click starts the loop.
    loopButtonImage(mPlaying && mLooping, mLoopButtonPressed)
        .draw(painter, QPointF(-rect.width() / 2, -rect.height() / 2));
    painter.restore();
}

void WaveformView::bounceLoopButton(bool pressed) {
    // Pressed, the button sinks a little; released, it springs past its size and settles.
    mButtonBounce->stop();
    mButtonBounce->setKeyValues({});
    mButtonBounce->setStartValue(mButtonScale);
    if (pressed) {
        mButtonBounce->setDuration(80);
        mButtonBounce->setEndValue(0.9);
    } else {
        mButtonBounce->setDuration(220);
        mButtonBounce->setKeyValueAt(0.5, 1.12);
        mButtonBounce->setEndValue(1.0);
    }
    mButtonBounce->start();
}

QRect WaveformView::poofRect() const {
    return QRectF(mPoofCentre - QPointF(20, 20), QSizeF(40, 40)).toAlignedRect();
}

void WaveformView::paintPoof(QPainter& painter) {
    if (mPoofProgress < 0)
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(250, 250, 250, int(200 * (1.0 - mPoofProgress))));
    const qreal spread = 4 + 10 * mPoofProgress;
    for (const QPointF offset : {QPointF(-1, 0), QPointF(0.6, -0.8), QPointF(0.6, 0.8)})
        painter.drawEllipse(mPoofCentre + offset * spread, 3 + 5 * mPoofProgress,
                            3 + 5 * mPoofProgress);
    painter.restore();
}

void WaveformView::paintFocusRing(QPainter& painter) {
    if (!hasFocus() || !mFocusFromKeys)
        return;
    // Four strips of whole device pixels, as wide on every side at any ratio.
    const qreal ratio = this->ratio();
    const qreal thickness = std::max<qreal>(1, std::round(kFocusRingWidth * ratio)) / ratio;
    const qreal right = std::floor(width() * ratio) / ratio;
    const qreal bottom = std::floor(height() * ratio) / ratio;
    painter.fillRect(QRectF(0, 0, right, thickness), look::focusRing);
    painter.fillRect(QRectF(0, bottom - thickness, right, thickness), look::focusRing);
    painter.fillRect(QRectF(0, 0, thickness, bottom), look::focusRing);
    painter.fillRect(QRectF(right - thickness, 0, thickness, bottom), look::focusRing);
}

QRegion WaveformView::focusRingRegion() const {
    const int width = int(std::ceil(kFocusRingWidth)) + 1; // the strips' rounding too
    return QRegion(rect()) - QRegion(rect().adjusted(width, width, -width, -width));
}

void WaveformView::focusInEvent(QFocusEvent* event) {
    switch (event->reason()) {
    case Qt::TabFocusReason:
    case Qt::BacktabFocusReason:
    case Qt::ShortcutFocusReason:
        mFocusFromKeys = true;
        break;
    case Qt::ActiveWindowFocusReason:
    case Qt::PopupFocusReason:
    case Qt::MenuBarFocusReason:
        break; // back where it was, ringed as it was
    default:
        mFocusFromKeys = false; // a click, or the window placing it
    }
    update(focusRingRegion()); // and not the waveform inside it
}

void WaveformView::focusOutEvent(QFocusEvent*) {
    update(focusRingRegion());
}

// Gestures.

const MarkerItem* WaveformView::markerUnder(const QPointF& position) const {
    for (std::uint32_t kind = kMarkerKindCount; kind-- > 0;) {
        const std::vector<MarkerItem>& items = mMarkerItems[kind];
        for (std::size_t i = items.size(); i-- > 0;) {
            if (markerRect(items[i]).contains(position))
                return &items[i];
        }
    }
    return nullptr;
}

MarkerItem* WaveformView::markerAt(const QPointF& position) {
    const MarkerItem* found = markerUnder(position);
    if (!found)
        return nullptr;
    mDraggedKind = found->kind;
    mDraggedIndex = std::size_t(found - mMarkerItems[found->kind].data());
    return &mMarkerItems[found->kind][mDraggedIndex];
}

bool WaveformView::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return SBindingView::event(event);
    // What a marker or the loop's button is, and what it does, which nothing else shows.
    const QPoint position = static_cast<QHelpEvent*>(event)->pos();
    QString tip;
    QRect over; // the tip goes as the pointer leaves it
    if (isLoopEnabled() && loopButtonHitRect().contains(position)) {
        tip = loopButtonToolTip(mPlaying && mLooping);
        over = loopButtonHitRect().toAlignedRect();
    } else if (const MarkerItem* marker = markerUnder(position)) {
        tip = markerToolTip(marker->kind, marker->frame);
        over = markerRect(*marker).toAlignedRect();
    }
    if (tip.isEmpty())
        QToolTip::hideText();
    else
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), tip, this, over);
    return true;
}

void WaveformView::setReturnAdjust(qint64 frame, qreal x) {
    mReturnAdjust = float(x - width() * 0.5);
    mReturnAdjustFramesCount = std::max<qint64>(
        0, frame - mGeometry.sampleFromPoint(mGeometry.visibleStartPoint() + width() * 0.5));
    mReturnAdjustFramesStart = frame;
}

void WaveformView::scrollAtEdges(qreal x) {
    qreal points = 0;
    if (x < 0)
        points = -std::min(-x, kEdgeScrollPoints);
    if (x > width())
        points = std::min(x - width(), kEdgeScrollPoints);
    if (points == 0)
        return;
    const qint64 frames = mGeometry.sampleFromPoint(std::abs(points));
    setStartFrame(
        mGeometry.clampedStartFrame(mGeometry.startFrame + (points < 0 ? -frames : frames)));
}

void WaveformView::mousePressEvent(QMouseEvent* event) {
    if (std::exchange(mFocusFromKeys, false))
        update(focusRingRegion()); // the mouse has taken over from the keys
    if (event->button() != Qt::LeftButton || !mWaveform)
        return;
    const QPointF position = event->position();
    mPressPosition = position;
    mPointer = position;
    mPressSongX = position.x() + shift();
    if (MarkerItem* marker = markerAt(position)) {
        mGesture = Gesture::Marker;
        marker->pressed = true;
        mMarkerMoving = false;
        mMarkerOff = false;
        mPressTimeMs = mClock();
        // A flag taken by its edge moves by as much as the pointer does, not to its middle.
        mMarkerGrabOffset = mPressSongX - std::floor(mGeometry.pointFromSample(marker->frame));
        update(markerRect(*marker).toAlignedRect());
    } else if (loopButtonHitRect().contains(position)) {
        mGesture = Gesture::LoopButton;
        mLoopButtonPressed = true;
        bounceLoopButton(true);
        update(loopButtonUpdateRect());
    } else if (waveformRect().contains(position)) {
        mGesture = Gesture::Loop;
        mLoopDragging = true;
        mPressLoopRange = mLoopRange;
        mLoopBeforeDrag = mLoopRange;
        mResizing = mShifting = mResizingLeft = mLoopDragBegun = false;
        if (isLoopEnabled()) {
            if (leftLoopHitRect().contains(position)) {
                mResizing = mResizingLeft = true;
            } else if (rightLoopHitRect().contains(position)) {
                mResizing = true;
            } else if (middleLoopHitRect().contains(position)) {
                mShifting = true;
                setCursor(Qt::ClosedHandCursor);
            }
        }
        if (mDelegate)
            mDelegate->waveformViewDidBeginEditingLoop(this);
        update(loopChangeRegion(mLoopRange, mLoopRange)); // a held knob darkens
    } else if (rulerRect().contains(position) || std::abs(position.x() - cursorX()) <= 3.0) {
        mGesture = Gesture::Scrub;
        mCursorPressed = true;
        const qint64 frame = std::min(frameAtViewX(position.x()), mGeometry.frameCount);
        setReturnAdjust(frame, position.x());
        setCurrentFrame(frame, true);
        if (!mPlaying) {
            mScrubbing = true;
            if (mDelegate)
                mDelegate->waveformViewDidBeginScrubbing(this);
        }
        update(cursorUpdateRect(cursorX()));
    }
}

void WaveformView::mouseMoveEvent(QMouseEvent* event) {
    mPointer = event->position();
    dragTo(mPointer);
    // A pointer resting past either edge keeps the view scrolling while a drag goes on.
    const bool outside = mPointer.x() < 0 || mPointer.x() > width();
    const bool dragging = mGesture == Gesture::Loop || mGesture == Gesture::Scrub ||
                          (mGesture == Gesture::Marker && mMarkerMoving);
    if (outside && dragging)
        mEdgeScrollTimer->start();
    else
        mEdgeScrollTimer->stop();
}

void WaveformView::dragTo(const QPointF& position) {
    switch (mGesture) {
    case Gesture::None:
        refreshCursor(position);
        return;
    case Gesture::Marker: {
        if (!mMarkerMoving && mClock() - mPressTimeMs < kMarkerHoldMs)
            return;
        mMarkerMoving = true;
        MarkerItem& item = mMarkerItems[mDraggedKind][mDraggedIndex];
        const QRect before = markerRect(item).toAlignedRect();
        scrollAtEdges(position.x());
        const qreal w = markerImageForType(mDraggedKind).width();
        // A marker stays inside the song, where it can be seen and taken again.
        const double songX =
            std::clamp<double>(std::floor(position.x() + shift() - mMarkerGrabOffset), 0.0,
                               mGeometry.pointFromSample(mGeometry.frameCount));
        item.dragX = songX - std::floor(w * 0.5);
        const QRectF strip = markerStripRect();
        mMarkerOff = position.y() < strip.top() - kMarkerKeepMargin ||
                     position.y() > strip.bottom() + kMarkerKeepMargin;
        item.opacity = mMarkerOff ? 0.4 : 1.0;
        if (mMarkerOff)
            setCursor(disappearingItemCursor());
        else
            setCursor(Qt::ClosedHandCursor);
        update(before.adjusted(-1, 0, 1, 0));
        update(markerRect(item).toAlignedRect().adjusted(-1, 0, 1, 0));
        return;
    }
    case Gesture::LoopButton: {
        const bool inside = loopButtonHitRect().contains(position);
        if (inside != mLoopButtonPressed) {
            mLoopButtonPressed = inside;
            update(loopButtonUpdateRect());
        }
        return;
    }
    case Gesture::Loop: {
        scrollAtEdges(position.x());
        const double songX = position.x() + shift();
        if (!mLoopDragBegun &&
            std::abs(songX - mPressSongX) < QGuiApplication::styleHints()->startDragDistance())
            return;
        mLoopDragBegun = true;
        const LoopDrag drag = loopRangeForStartPoint(mGeometry, mPressSongX, songX, mPressLoopRange,
                                                     mResizing, mResizingLeft, mShifting);
        if (drag.rightAligned)
            setLoopButtonRightAligned(*drag.rightAligned);
        if (!mResizing)
            mSelectionAnchorFrame = drag.range.location;
        setLoopRange(drag.range, false);
        return;
    }
    case Gesture::Scrub: {
        scrollAtEdges(position.x());
        // Past an edge the play head waits at it while the view scrolls on, in sight when let go.
        const qreal x = std::clamp<qreal>(position.x(), 0, width());
        const qint64 frame = std::clamp<qint64>(frameAtViewX(x), 0, mGeometry.frameCount);
        setCurrentFrame(frame, true);
        updateCursorPosition();
        return;
    }
    }
}

void WaveformView::finishMarkerDrag(bool cancelled) {
    MarkerItem& item = mMarkerItems[mDraggedKind][mDraggedIndex];
    const std::uint32_t kind = mDraggedKind;
    mGesture = Gesture::None;
    refreshCursor(mPointer);
    // Let go in its own column, a marker keeps its own frame rather than the column's first.
    const qreal half = std::floor(markerImageForType(kind).width() * 0.5);
    const bool inPlace = !mMarkerOff && item.dragX &&
                         *item.dragX + half == std::floor(mGeometry.pointFromSample(item.frame));
    if (cancelled || inPlace) {
        item = MarkerItem{kind, item.frame, false, std::nullopt, 1.0};
        update(markerStripRect().toAlignedRect());
        return;
    }
    QList<quint32> markers = mMarkers[kind];
    markers.removeAll(quint32(item.frame));
    if (!mMarkerOff) {
        // Let go on another of its kind, it becomes that one: two at one frame would show as
        // one flag. Let go at the song's end, it lands there: the end's point, held as a float,
        // can fall short of it by a frame.
        const double point = *item.dragX + half;
        const qint64 end = mGeometry.frameCount;
        const auto frame = quint32(point >= mGeometry.pointFromSample(end)
                                       ? end
                                       : std::min(mGeometry.sampleFromPoint(point), end));
        if (!markers.contains(frame))
            markers.append(frame);
    } else {
        mPoofCentre = mPointer;
        mPoof->start();
    }
    writeMarkers(kind, markers);
}

void WaveformView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF position = event->position();
    mEdgeScrollTimer->stop();
    const Gesture gesture = std::exchange(mGesture, Gesture::None);
    switch (gesture) {
    case Gesture::None:
        return;
    case Gesture::Marker: {
        if (mMarkerMoving) {
            mGesture = Gesture::Marker;
            finishMarkerDrag(false);
            return;
        }
        MarkerItem& item = mMarkerItems[mDraggedKind][mDraggedIndex];
        item.pressed = false;
        update(markerRect(item).toAlignedRect());
        setCurrentFrame(item.frame, true);
        return;
    }
    case Gesture::LoopButton:
        mLoopButtonPressed = false;
        bounceLoopButton(false);
        update(loopButtonUpdateRect());
        if (loopButtonHitRect().contains(position))
            emit loopButtonClicked();
        return;
    case Gesture::Loop:
        finishLoopDrag(mLoopRange, true, position);
        return;
    case Gesture::Scrub: {
        // A press while playing only moved the play head: no scrub began, so none ends.
        const bool wasScrubbing = mScrubbing;
        mScrubbing = false;
        mCursorPressed = false;
        update(cursorUpdateRect(cursorX()));
        if (wasScrubbing && mDelegate)
            mDelegate->waveformViewDidEndScrubbing(this);
        return;
    }
    }
}

void WaveformView::abandonMouseGesture() {
    // A loop drag or a scrub ends where it got to, a marker goes back where it was, a pressed
    // button or marker is let go.
    mEdgeScrollTimer->stop();
    switch (mGesture) {
    case Gesture::None:
        return;
    case Gesture::Marker: {
        if (mMarkerMoving) {
            finishMarkerDrag(true);
            return;
        }
        mGesture = Gesture::None;
        MarkerItem& item = mMarkerItems[mDraggedKind][mDraggedIndex];
        item.pressed = false;
        update(markerRect(item).toAlignedRect());
        return;
    }
    case Gesture::LoopButton:
        mGesture = Gesture::None;
        mLoopButtonPressed = false;
        bounceLoopButton(false);
        update(loopButtonUpdateRect());
        return;
    case Gesture::Loop:
    case Gesture::Scrub: {
        QMouseEvent release(QEvent::MouseButtonRelease, mPointer, mapToGlobal(mPointer),
                            Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
        mouseReleaseEvent(&release);
        return;
    }
    }
}

void WaveformView::finishLoopDrag(LoopRange range, bool notifyObserver, const QPointF& pointer) {
    mLoopDragging = false;
    const LoopRange dragged = mLoopRange;
    setLoopRange(range, notifyObserver);
    if (mDelegate)
        mDelegate->waveformViewDidEndEditingLoop(this);
    refreshCursor(pointer);
    update(loopChangeRegion(dragged, mLoopRange));
}

void WaveformView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && mGesture == Gesture::Marker && mMarkerMoving) {
        finishMarkerDrag(true);
        return;
    }
    if (event->key() == Qt::Key_Escape && mGesture == Gesture::Loop) {
        // The loop the document holds, told only on release: it never saw the drag.
        mEdgeScrollTimer->stop();
        mGesture = Gesture::None;
        finishLoopDrag(mLoopBeforeDrag, false, mPointer);
        return;
    }
    SBindingView::keyPressEvent(event);
}

void WaveformView::wheelEvent(QWheelEvent* event) {
    // Pixel deltas where the device gives them, else one point per eighth of a degree.
    const QPoint pixels = event->pixelDelta();
    const QPointF deltas = pixels.isNull() ? QPointF(event->angleDelta()) / 8.0 : QPointF(pixels);
    const qreal delta = std::abs(deltas.x()) < std::abs(deltas.y()) ? deltas.y() : deltas.x();
    qint64 frames = mGeometry.sampleFromPoint(std::trunc(std::abs(delta)));
    if (delta < 0)
        frames = -frames;
    if (mGesture == Gesture::None && rulerRect().contains(event->position())) {
        setCurrentFrame(std::clamp<qint64>(mCurrentFrame - frames, 0, mGeometry.frameCount), true);
    } else {
        setStartFrame(mGeometry.clampedStartFrame(mGeometry.startFrame - frames));
        // In the middle of a drag the wheel carries the view on, and what is dragged stays under
        // the pointer: a loop edge or the play head can reach past the view without the edges.
        if (mGesture != Gesture::None)
            dragTo(mPointer);
    }
    event->accept();
}

void WaveformView::refreshCursor(const QPointF& position) {
    Qt::CursorShape shape = Qt::CrossCursor;
    if (isLoopEnabled()) {
        if (loopButtonHitRect().contains(position))
            shape = Qt::ArrowCursor;
        else if (leftLoopHitRect().contains(position) || rightLoopHitRect().contains(position))
            shape = Qt::SizeHorCursor;
        else if (middleLoopHitRect().contains(position))
            shape = Qt::OpenHandCursor;
    }
    if (cursor().shape() != shape)
        setCursor(shape);
}

} // namespace tesk
