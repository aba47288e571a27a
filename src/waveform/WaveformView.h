#pragma once

#include "controls/SBindingView.h"
#include "waveform/MarkerItem.h"
#include "waveform/PlayheadClock.h"
#include "waveform/Waveform.h"
#include "waveform/WaveformGeometry.h"
#include "waveform/WaveformStripCache.h"
#include "waveform/WaveformViewDelegate.h"

#include <QGuiApplication>
#include <QList>
#include <QRegion>
#include <QUrl>
#include <QVariantAnimation>
#include <array>
#include <functional>
#include <memory>
#include <vector>

class QTimer;

namespace tesk {

/// One song's waveform in a horizontal strip: the time ruler at the top, the marker flags under
/// it and the waveform with the loop band, the play position's line and the loop's play button.
/// The user clicks or drags on the ruler to move the play position, drags the loop's edges, the
/// loop as a whole or a new loop on the waveform, and drags markers along the strip or off it
/// to delete them. Every change goes back through the bindings; the view mirrors what the
/// document gives it.
///
/// Binding names: "currentFrame" (qint64), "loopRange" (LoopRange), "fileURL" (QUrl),
/// "genericMarkers", "chorusMarkers", "verseMarkers", "bridgeMarkers" (QList<quint32>),
/// "visibleFrames", "zoomLevel" (double).
///
/// The waveform is drawn through a two-image strip cache, so scrolling paints only the newly
/// exposed strip; the play position moves by repainting two narrow strips over the cache, and a
/// loop edge by repainting the strip it swept.
///
/// Main thread only.
class WaveformView : public SBindingView, private WaveformDelegate {
    Q_OBJECT
    Q_PROPERTY(qint64 startFrame READ startFrame WRITE setStartFrame NOTIFY startFrameChanged)
    Q_PROPERTY(
        qint64 currentFrame READ currentFrame WRITE setCurrentFrame NOTIFY currentFrameChanged)
    Q_PROPERTY(double zoomLevel READ zoomLevel WRITE setZoomLevel NOTIFY zoomLevelChanged)
    Q_PROPERTY(qint64 frameCount READ frameCount NOTIFY frameCountChanged)
    Q_PROPERTY(double visibleProportion READ visibleProportion NOTIFY geometryChanged)
    Q_PROPERTY(double scrollPosition READ scrollPosition WRITE setScrollPosition NOTIFY
                   scrollPositionChanged)
    Q_PROPERTY(bool scrollerDragging READ scrollerDragging WRITE setScrollerDragging NOTIFY
                   scrollerDraggingChanged)
    Q_PROPERTY(bool playing READ isPlaying WRITE setPlaying NOTIFY playingChanged)
    Q_PROPERTY(bool looping READ isLooping WRITE setLooping NOTIFY loopingChanged)
    Q_PROPERTY(tesk::LoopRange loopRange READ loopRange WRITE setLoopRange NOTIFY loopRangeChanged)

public:
    /// Heights of the strips, top to bottom, in logical pixels.
    static constexpr int kRulerHeight = 18;
    static constexpr int kMarkerStripHeight = 16;
    /// How long a marker must be held before it moves.
    static constexpr qint64 kMarkerHoldMs = 200;
    /// The keyboard focus ring's width, inside the view's edges, in logical pixels.
    static constexpr qreal kFocusRingWidth = 2.0;

    explicit WaveformView(QWidget* parent = nullptr);
    ~WaveformView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    // The song.
    /// Opens and scans the file itself; ignored when empty or the same as the current one.
    void setFileURL(const QUrl& url);
    /// Scans the song the player has already decoded.
    void setDecodedSong(std::shared_ptr<const DecodedFrames> frames, const QUrl& url);
    QUrl fileURL() const;
    const Waveform* waveform() const { return mWaveform.get(); }
    qint64 frameCount() const { return mGeometry.frameCount; }

    // Values.
    qint64 startFrame() const { return mGeometry.startFrame; }
    void setStartFrame(qint64 frame);
    qint64 currentFrame() const { return mCurrentFrame; }
    void setCurrentFrame(qint64 frame) { setCurrentFrame(frame, false); }
    /// Sets the play position and, when notifying, writes it to "currentFrame".
    void setCurrentFrame(qint64 frame, bool notifyObserver);
    double zoomLevel() const { return mGeometry.zoomLevel; }
    void setZoomLevel(double level);
    double maximumZoomLevel() const { return mGeometry.maximumZoomLevel; }
    double visibleProportion() const { return mGeometry.visibleProportion(); }
    qint64 visibleMinimum() const { return mGeometry.visibleMinimum(); }
    qint64 visibleMaximum() const { return mGeometry.visibleMaximum(); }
    double scrollPosition() const { return mGeometry.scrollPosition(); }
    void setScrollPosition(double position);
    bool scrollerDragging() const { return mScrollerDragging; }
    void setScrollerDragging(bool dragging);
    bool isPlaying() const { return mPlaying; }
    void setPlaying(bool playing);
    bool isLooping() const { return mLooping; }
    void setLooping(bool looping);
    LoopRange loopRange() const { return mLoopRange; }
    void setLoopRange(LoopRange range) { setLoopRange(range, false); }
    void setLoopRange(LoopRange range, bool notifyObserver);
    bool isLoopEnabled() const { return mLoopRange.length != 0; }
    bool isLoopDragging() const { return mLoopDragging; }
    bool isScrubbing() const { return mScrubbing; }
    const WaveformGeometry& geometryValues() const { return mGeometry; }

    // Markers.
    QList<quint32> markersForType(std::uint32_t kind) const;
    void setMarkers(const QList<quint32>& markers, std::uint32_t kind);
    /// Every marker, sorted ascending; `highLevelMarkers` without the generic ones.
    QList<quint32> allMarkers() const;
    QList<quint32> highLevelMarkers() const;
    const std::vector<MarkerItem>& markerItems(std::uint32_t kind) const {
        return mMarkerItems[kind];
    }
    /// The loop between the markers around `frame`.
    LoopRange markerBoundedLoopRangeForSample(qint64 frame) const;

    // Commands (from the window's menus and keys). With Shift held, a navigation command first
    // extends the loop to the new play position.
    void scrollPageLeft();
    void scrollPageRight();
    void zoomToFitLoop();
    void rewind(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void fastForward(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void jumpToBeginning(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void jumpToEnd(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void jumpToNextMarker(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void
    jumpToPreviousMarker(Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void jumpToNextHighLevelMarker(
        Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void jumpToPreviousHighLevelMarker(
        Qt::KeyboardModifiers modifiers = QGuiApplication::keyboardModifiers());
    void extendLoopToNewFrame(qint64 frame);
    void selectAll();
    void clearSelection();

    // The play head during playback: the window passes each report of the heard frame, and
    // calls `advancePlayhead` when a frame is about to be shown.
    PlayheadClock& playheadClock() { return mPlayheadClock; }
    /// Moves the play position to where the clock puts it at `steadyTimeNs`, without writing it
    /// back; nothing before the clock's first report.
    void advancePlayhead(std::int64_t steadyTimeNs);

    void setDelegate(WaveformViewDelegate* delegate) { mDelegate = delegate; }
    WaveformViewDelegate* delegate() const { return mDelegate; }
    /// Milliseconds of a steady clock, for the marker hold and the play head's ease back to the
    /// middle; tests replace it.
    void setClock(std::function<qint64()> clock) { mClock = std::move(clock); }

    // Places, in view coordinates.
    QRectF rulerRect() const;
    QRectF markerStripRect() const;
    QRectF waveformRect() const;
    /// The song point shown at the view's left edge, in whole device pixels.
    qreal shift() const;
    /// The x of the play position's line (a pixel centre) in view coordinates.
    qreal cursorX() const;
    QRectF visibleLoopRect() const;
    QRectF leftLoopHitRect() const;
    QRectF rightLoopHitRect() const;
    QRectF middleLoopHitRect() const;
    QRectF loopButtonHitRect() const;
    bool loopButtonShown() const { return isLoopEnabled(); }
    bool loopButtonRightAligned() const { return mLoopButtonRightAligned; }
    QRectF markerRect(const MarkerItem& item) const;

    /// The part of the view that differs between the loop `from` and the loop `to`: where each
    /// edge was and is, with its knob, over the view's height.
    QRegion loopChangeRegion(LoopRange from, LoopRange to) const;

    /// Paints the view as its paint event does, into any painter (an image for a bench or a
    /// picture), at `devicePixelRatio`; `clip` in view coordinates.
    void paintView(QPainter& painter, const QRegion& clip, qreal devicePixelRatio);
    /// Forgets the cached waveform picture, so the next paint draws it all.
    void redrawWaveform();

    /// Counters for tests and benches: device pixels of waveform drawn into the strip cache,
    /// and the number of such draws.
    qint64 waveformPixelsDrawn() const { return mWaveformPixelsDrawn; }
    int waveformDraws() const { return mWaveformDraws; }

signals:
    void startFrameChanged();
    void currentFrameChanged();
    void zoomLevelChanged();
    void frameCountChanged();
    void geometryChanged();
    void scrollPositionChanged();
    void scrollerDraggingChanged();
    void playingChanged();
    void loopingChanged();
    void loopRangeChanged();
    /// The loop's play button was clicked.
    void loopButtonClicked();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    bool event(QEvent* event) override;
    void abandonMouseGesture() override;

private:
    void refreshSpokenValue();
    qreal ratio() const { return mPaintRatio > 0 ? mPaintRatio : devicePixelRatioF(); }

    enum class Gesture { None, Marker, LoopButton, Loop, Scrub };

    void waveformDidBeginScanningFile(Waveform* waveform) override;
    void waveformHasAvailableFrames(Waveform* waveform, FrameRange frames) override;
    void waveformDidLearnFrameCount(Waveform* waveform) override;
    void waveformDidFinishScanning(Waveform* waveform) override;
    void replaceWaveform(std::unique_ptr<Waveform> waveform);

    void geometryDidChange(); // zoom or size: everything is redrawn
    void updateVisibleRegion();
    void updateCursorPosition();
    void updateMarkersOfType(std::uint32_t kind);
    void refreshCursor(const QPointF& position);
    /// Ends a loop drag with the loop at `range`, sent to the document when `notifyObserver`.
    void finishLoopDrag(LoopRange range, bool notifyObserver, const QPointF& pointer);
    void jumpTo(qint64 frame, Qt::KeyboardModifiers modifiers);
    void jumpToNextMarkerInList(const QList<quint32>& markers, Qt::KeyboardModifiers modifiers);
    void jumpToPreviousMarkerInList(const QList<quint32>& markers, Qt::KeyboardModifiers modifiers);
    void setReturnAdjust(qint64 frame, qreal x);
    void scrollAtEdges(qreal x);
    void dragTo(const QPointF& position);
    qint64 frameAtViewX(qreal x) const;
    QRect cursorUpdateRect(qreal x) const;
    /// The loop button with room for its bounce.
    QRect loopButtonUpdateRect() const;
    void setLoopButtonRightAligned(bool rightAligned);
    /// The marker drawn on top at `position`, made the one a drag would move.
    MarkerItem* markerAt(const QPointF& position);
    /// The marker drawn on top at `position`, if any.
    const MarkerItem* markerUnder(const QPointF& position) const;
    void finishMarkerDrag(bool cancelled);
    void writeMarkers(std::uint32_t kind, const QList<quint32>& markers);

    // Painting passes, in order, each in song points.
    void paintWaveform(QPainter& painter);
    void paintRuler(QPainter& painter, const QRectF& clip);
    void paintLoop(QPainter& painter, const QRegion& clip);
    void paintMarkers(QPainter& painter);
    void paintCursor(QPainter& painter);
    void paintLoopButton(QPainter& painter);
    void paintPoof(QPainter& painter);
    /// Round the whole view, while it has the focus that Tab gave it: a click, or the window
    /// opening, gives it the focus without a ring, as it is where the keys go anyway; a click
    /// takes the ring away.
    void paintFocusRing(QPainter& painter);
    QRegion focusRingRegion() const;
    void bounceLoopButton(bool pressed);
    QRect poofRect() const;
    void drawWaveformStrip(QPainter& painter, const QRectF& strip, bool selected);
    /// Where a loop edge at song point `point` begins, so that no second's line is split by it.
    qreal loopEdgeX(qreal point) const;
    /// Whether a second's line is drawn in the column of song point `point`.
    bool hasSecondLineAt(qreal point) const;

    bool mFocusFromKeys = false; // the focus came by Tab: the ring shows
    std::unique_ptr<Waveform> mWaveform;
    WaveformGeometry mGeometry;
    qint64 mCurrentFrame = 0;
    bool mScrollerDragging = false;
    bool mScrubbing = false;
    bool mPlaying = false;
    bool mLooping = false;
    bool mLoopDragging = false;
    LoopRange mLoopRange;
    qint64 mSelectionAnchorFrame = 0;
    float mReturnAdjust = 0.0f;
    qint64 mReturnAdjustFramesStart = 0;
    qint64 mReturnAdjustFramesCount = 0;
    /// When the follow rule last ran (`mClock`), which says how far the cursor eases back.
    qint64 mLastFollowMs = -1;
    bool mLoopButtonRightAligned = true;
    bool mLoopButtonPressed = false;
    bool mCursorPressed = false;
    std::array<QList<quint32>, kMarkerKindCount> mMarkers;
    std::array<std::vector<MarkerItem>, kMarkerKindCount> mMarkerItems;
    WaveformViewDelegate* mDelegate = nullptr;
    PlayheadClock mPlayheadClock;
    std::function<qint64()> mClock;

    // The gesture under way.
    Gesture mGesture = Gesture::None;
    QPointF mPressPosition;
    qreal mPressSongX = 0.0;
    qreal mMarkerGrabOffset = 0.0; // from the marker's point to the pointer, at the press
    qint64 mPressTimeMs = 0;
    LoopRange mPressLoopRange;
    LoopRange mLoopBeforeDrag; // what Escape puts back: the document's loop
    bool mResizing = false;
    bool mResizingLeft = false;
    bool mShifting = false;
    // A loop changes only once the pointer has gone the platform's drag distance from the
    // press, so that a click with a shaking hand leaves the loop as it was.
    bool mLoopDragBegun = false;
    std::uint32_t mDraggedKind = 0;
    std::size_t mDraggedIndex = 0;
    bool mMarkerMoving = false;
    bool mMarkerOff = false;

    WaveformStripCache mStripCache;
    qint64 mWaveformPixelsDrawn = 0;
    int mWaveformDraws = 0;
    qreal mPaintedCursorX = -1.0;
    // The loop button's press and release bounces, and the puff of a deleted marker.
    QVariantAnimation* mButtonBounce = nullptr;
    qreal mButtonScale = 1.0;
    QVariantAnimation* mPoof = nullptr;
    QPointF mPoofCentre;
    qreal mPoofProgress = -1.0;
    QPointF mPointer;
    QTimer* mEdgeScrollTimer = nullptr;
    qreal mPaintRatio = 0.0; // of the paint under way; the widget's own otherwise
};

} // namespace tesk
