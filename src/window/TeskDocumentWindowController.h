#pragma once

#include "document/TeskDocument.h"
#include "document/TeskDocumentWindow.h"
#include "waveform/WaveformViewDelegate.h"
#include "window/WindowCommands.h"

#include <QMainWindow>
#include <QPointer>
#include <QProgressDialog>
#include <QTimer>
#include <functional>
#include <map>

class QAction;
class QLabel;
class QMenu;

class QSplitter;
class QToolButton;

namespace tesk {

class TeskDocumentController;
class KLTexturedSlider;
class PressedImageButton;
class TeskMetadataView;
class SongViews;

/// The answer to quitting with several changed practices.
enum class QuitReview { ReviewEach, DiscardAll, Cancel };

/// What a document window asks of the application around it. Main thread.
struct WindowServices {
    TeskDocumentController* documents = nullptr;
    std::function<void()> sendFeedback;
    std::function<void()> showAbout;
    std::function<void()> quit;
    /// Asks where to export: the dialog's title ("Export Song" or "Export Loop") and the
    /// proposed path without its extension in (beside the practice, or the song when there is
    /// none), the chosen path and format index (0 MPEG-4 audio, 1 AIFF) out through `chosen`, or
    /// nothing when cancelled. A window-modal file dialog unless a test replaces it.
    std::function<void(QWidget* window, const QString& title, const QString& proposedPath,
                       std::function<void(const QString& path, int formatIndex)> chosen)>
        askExportFile;
    /// Asks whether to save a changed document before it closes: Save, Discard or Cancel
    /// (QMessageBox's buttons). A window-modal question unless a test replaces it.
    std::function<int(QWidget* window, const QString& documentName)> askSaveChanges;
    /// Asks, on quitting with `changedCount` (two or more) changed practices, whether to ask
    /// about each, throw every change away, or not quit. A modal question unless a test
    /// replaces it.
    std::function<QuitReview(int changedCount)> askReviewChanges;
    /// Asks whether to stop an export that is still running so that its window can close:
    /// true to stop it. A window-modal question unless a test replaces it.
    std::function<bool(QWidget* window, const QString& exportName)> askStopExport;
    /// Asks where to save a practice document, proposing `proposedPath`; empty when cancelled.
    std::function<QString(QWidget* window, const QString& proposedPath)> askDocumentFile;
    /// Asks whether an export may replace the file at `path`; the export dialog asks nothing,
    /// since the name it returns may still change. A modal question unless a test replaces it.
    std::function<bool(QWidget* window, const QString& path)> askReplaceFile;
    /// Asks where a song that went missing is now, starting in `startFolder`; empty when
    /// cancelled. A window-modal file dialog unless a test replaces it.
    std::function<QString(QWidget* window, const QString& startFolder)> askSongFile;
};

/// One document window: the song's metadata, the transport panel, the waveform and its
/// scroller, the bottom bar, the effects panel in a collapsible split. It binds every view to
/// the document, turns menus, buttons, keys and the wheel into document and view commands,
/// drives the display while the song plays, and runs exports. Main thread.
class TeskDocumentWindowController : public QMainWindow,
                                     public TeskDocumentWindow,
                                     public TeskDocumentPlaybackDelegate,
                                     public TeskDocumentMetadataDelegate,
                                     public TeskDocumentFileExportDelegate,
                                     public WaveformViewDelegate {
    Q_OBJECT
public:
    TeskDocumentWindowController(TeskDocument* document, WindowServices services);
    ~TeskDocumentWindowController() override;

    TeskDocument* document() const { return mDocument; }

    /// Runs a command of the menus, buttons or keys, if its rule enables it.
    void perform(WindowCommand command);
    /// What the enabling rules look at, now.
    WindowCommandState commandState() const;
    /// The menu item of a command, for its title and enabled state.
    QAction* action(WindowCommand command) const;
    /// Brings every menu item's enabled state and the play item's title up to date.
    void validateMenuItems();

    /// Whether the play-head and display timers run (while the song plays and can be seen).
    bool displayTimersActive() const { return mHUDTimer.isActive(); }
    /// The running export's progress dialog, if any.
    QProgressDialog* exportProgressDialog() const { return mExportProgress; }
    /// The line above the song that tells of a missing song (with "Locate…") or of a missing
    /// sound device; empty while hidden.
    QString noticeText() const;
    /// Lets the user point at a song that went missing; the document then refers to it.
    void locateSong();
    /// Shows `error` as a message on this window, without blocking the window's owner.
    void presentError(const TeskError& error);
    /// A warning on this window that does not wait for its answer; `details`, when given, behind
    /// its Show Details button.
    void presentMessage(const QString& text, const QString& more = {}, const QString& details = {});

    /// Closes without asking: the document is going away.
    void closeWithoutAsking();
    /// Whether closing asks first: the practice of a song (even one gone since) has changes.
    bool hasChangesToAskAbout() const;
    /// The window without a song or a practice of its own: the drop target.
    bool isEmptyWindow() const;
    /// Closes throwing its changes away, unasked; only an export still running is asked about.
    /// False when the window stays open.
    bool closeDiscardingChanges();

    // TeskDocumentWindow.
    void showWindow() override;
    void synchronizeWindowTitleWithDocumentName() override;
    QRectF windowFrame() const override;

    // The document's delegates.
    void documentDidBeginPlayingAudio(TeskDocument*) override;
    void documentDidStopPlayingAudio(TeskDocument*) override;
    void documentDidImportMetadata(TeskDocument*) override;
    void updateFileExportWithProgress(double progress) override;
    void fileDidFinishExporting(const QString& path) override;
    void fileExportDidFail(const QString& path, const TeskError& error) override;

    // The waveform's gestures.
    void waveformViewDidBeginScrubbing(WaveformView*) override;
    void waveformViewDidEndScrubbing(WaveformView*) override;
    void waveformViewDidBeginEditingLoop(WaveformView*) override;
    void waveformViewDidEndEditingLoop(WaveformView*) override;
    /// A song that ended early, its file damaged or cut short, is told on the window.
    void waveformViewDidReadWholeSong(WaveformView*) override;

protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void buildPopulatedContent();
    void buildUntitledContent();
    void buildMenus();
    void placeWindow();
    void bindViews();
    void unbindViews();
    void updateButtonImages();
    void showSoundNotice();
    /// Shows what is to be told of the song and the sound device under the song's views.
    void showNotices();
    /// Runs the display timers while the song plays and the window can be seen.
    void updateDisplayTimers();
    void updateHUD();
    void updateWaveform();
    void handlePlayPauseButton();
    void handleLoopButton();
    void doExportSongUsingLoop(bool loop);
    void startLoopExportWithFile(const QString& path);
    /// Whether to write over the document's own file, changed by someone else since.
    bool askReplaceChangedFile(const QString& path);
    /// Quits Tesk as the application does it (each window asked in turn).
    void quit();
    /// Whether to save the practice called `name` before closing: a QMessageBox answer.
    int askSaveChanges(const QString& name);
    /// Whether to stop the running export so that the window can close.
    bool askStopExport();
    bool askReplaceFile(const QString& path);
    /// Asks `question` (plain text, Cancel the default) and says whether Yes was the answer.
    bool askYesOrCancel(const QString& title, const QString& question);
    /// Says so and returns true when `path` is another window's practice or song: two windows
    /// saving to one file would each write over the other's practice, and an export over a song
    /// another window plays would change the sound under its markers.
    bool refuseFileOpenElsewhere(const QString& path);
    /// Says so and returns true when `path` is this window's own song.
    bool refuseExportOverSong(const QString& path);
    /// Where the save dialog starts: a saved practice's own file, else a name beside the song.
    QString proposedDocumentPath() const;
    void save(bool askForName);
    /// Asks where to save the practice document: Qt's own dialog. Empty when cancelled.
    QString askDocumentPath(const QString& proposed);
    void showSongProblem();
    /// Shows the song's problem once it has one, and takes it away once it has none.
    void refreshSongProblem();
    bool handleKey(QKeyEvent* event);
    /// Whether a key press repeats a key held down.
    bool isHeldKey(const QKeyEvent* event) const;

    TeskDocument* mDocument;
    WindowServices mServices;
    std::map<WindowCommand, QAction*> mActions;
    QAction* mShowEffectsAction = nullptr;
    QMenu* mRecentMenu = nullptr;

    TeskMetadataView* mMetadataView = nullptr;
    SongViews* mViews = nullptr;
    QSplitter* mSplitView = nullptr;
    QWidget* mEffectsParentView = nullptr;
    PressedImageButton* mPlayPauseButton = nullptr;
    PressedImageButton* mRewindButton = nullptr;
    PressedImageButton* mFastForwardButton = nullptr;
    PressedImageButton* mMarkButton = nullptr;
    QToolButton* mEffectsToggleButton = nullptr;
    KLTexturedSlider* mZoomSlider = nullptr;
    KLTexturedSlider* mVolumeSlider = nullptr;
    QLabel* mNoticeLabel = nullptr;

    QTimer mHUDTimer;
    QTimer mWaveformTimer;
    QPointer<QProgressDialog> mExportProgress;
    QString mExportName; // the file the running export writes, without its folder
    bool mExportingWithLoop = false;
    bool mEditingLoop = false;
    bool mPlaying = false; // as the document last told: scrubbing does not count
    bool mClosed = false;
    bool mDiscardingChanges = false;
    struct {
        int key = 0;
        quint64 timestamp = 0;
    } mLastKeyRelease; // to tell a held key's repeats from presses
    // A menu of the bar was opened with the mouse: Escape out of it gives the keys back to the
    // window rather than to the menu bar, where a marker's letter would open a menu instead.
    bool mMenuOpenedByMouse = false;
    void menuClosed();
    // The menu bar done with the keys but left holding them, or nobody: the waveform takes
    // them. Main thread.
    void takeKeysBackFromMenuBar();
    bool mShowingSongProblem = false;
    QString mSoundNotice;  // the device gives no sound
    QString mDamageNotice; // the song could not be read to its end
};

} // namespace tesk
