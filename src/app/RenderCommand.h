#pragma once

#include "app/RenderOptions.h"
#include "app/RenderProgress.h"
#include "audio/ExportTemporaryFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"

#include <QEventLoop>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace tesk {

class TeskExtendedAudioFile;

/// Writes `text` to standard output; false, with the reason said on standard error, when it
/// could not all be written (a full disk, a closed output). Main thread.
bool printToStandardOutput(const QString& text);

/// The work of `tesk-render` once its command line is read: reads the practice document and
/// finds its song (--document), opens INPUT, then prints what it reads (--info), exports it
/// through the player into OUTPUT, plays it through the sound device, or writes a practice
/// document for it (--save-document). Errors go to standard error as one line starting
/// "tesk-render: ".
///
/// An export renders into a temporary file beside OUTPUT, on a thread of its own so that the
/// main thread can show progress and answer Ctrl-C, and only a complete file is renamed over
/// OUTPUT.
///
/// Main thread, with a QCoreApplication.
class RenderCommand : public QObject, private TeskExtendedAudioFilePlayerDelegate {
    Q_OBJECT

public:
    explicit RenderCommand(RenderOptions options, QObject* parent = nullptr);
    ~RenderCommand() override;

    /// Makes SIGINT, SIGTERM and SIGHUP ask the running command to stop (a second SIGINT ends the
    /// program at once). Call once, before `exec`.
    static void installInterruptHandlers();

    /// Does the work and returns the exit code (RenderExitCode).
    int exec();

private:
    /// What the work thread hands back.
    struct WorkResult {
        int exitCode = kRenderDone;
        QString message;
    };

    /// --document: finds the song and fills in the settings the command line left; the exit
    /// code to end with when it cannot.
    std::optional<int> readDocument();
    /// Work thread: waits until the whole song is decoded; what to end with when that was
    /// cancelled or there is no sound in it.
    std::optional<WorkResult> waitForWholeSong();
    void showInfo();
    void infoDidEnd(const WorkResult& result);
    void exportSong();
    /// Export thread: waits for the whole song, then renders it into the temporary file.
    WorkResult runExport();
    void exportDidEnd(const WorkResult& result);
    void playSong();
    /// Says so and finishes when `path` is INPUT itself, or a link to it.
    bool refuseToWriteOverInput(const QString& path);
    void saveDocument();
    void saveDocumentDidEnd(const WorkResult& result);
    /// The status line at `frame` of what the player plays.
    void showPlaybackStatus(qint64 frame);
    /// The options' speed, pitch, level and effects.
    void configurePlayer();
    /// The frames [first, end) of the song to play: all of them, or the range (or the
    /// document's loop) clipped to the song; null, with `error` set, when it starts after the
    /// song's end.
    std::optional<std::pair<qint64, qint64>> framesToPlay(qint64 totalFrames, QString* error) const;
    /// Runs `work` on the work thread, then `done` with its result on the main thread.
    void runInBackground(std::function<WorkResult()> work,
                         void (RenderCommand::*done)(const WorkResult&));
    /// Every few milliseconds: looks for an interrupt and moves the display on.
    void poll();
    /// Ends the event loop with `exitCode`; the first call wins.
    void finish(int exitCode);
    /// "tesk-render: `message`" on a line of its own.
    void reportError(const QString& message);
    void warnAboutDecoding();

    void audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer* player) override;
    void audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer* player,
                                                  double progress) override;

    /// Completed from the document, when there is one, before anything else.
    RenderOptions mOptions;
    std::shared_ptr<TeskExtendedAudioFile> mFile;
    std::unique_ptr<TeskExtendedAudioFilePlayer> mPlayer;
    RenderProgress mProgress;
    QEventLoop mLoop;
    std::optional<int> mExitCode;
    QTimer mPollTimer;
    bool mToldOfDecoding = false; // while playing: whether decoding's end has been looked at
    int mPolls = 0;
    bool mInterrupted = false;
    /// Read by the work thread between its steps.
    std::atomic<bool> mCancelRequested{false};
    std::thread mWorker;

    // Export.
    std::unique_ptr<ExportTemporaryFile> mTemporary;
    bool mExporting = false;

    // Playback.
    bool mPlaying = false;
    /// Where the part played (--range) starts in the song.
    qint64 mPartOffset = 0;
    bool mReachedEnd = false;
    QTimer mDrainTimer;
};

} // namespace tesk
