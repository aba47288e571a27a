#include "app/RenderCommand.h"
#include "audio/EngineConstants.h"

#include "app/RenderDocument.h"
#include "app/SongPart.h"

#include "audio/SongMetadataReader.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "audio/dsp/VectorUnit.h"
#include "diagnostics/NSXReturnThrowError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace tesk {
namespace {

constexpr double kEngineRate = engine::kSampleRateHz;
constexpr int kPollMilliseconds = 50;
/// The bar's clock and the playback status move on every fifth poll.
constexpr int kPollsPerRedraw = 5;
/// The end of the song is reported once its last frame has left Tesk's buffers for the sound
/// server, which plays it a little later still.
constexpr int kDrainMilliseconds = 100;

/// The signal that asked us to stop, or 0. Written only by the handler: a lock-free atomic is
/// all a handler may touch; the main thread polls it.
std::atomic<int> gInterruptSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);
/// The export's own file while one is written, for a second signal to remove: its path, set
/// before `gPartialFileSet` is, on the main thread.
char gPartialFile[4096];
std::atomic<bool> gPartialFileSet{false};

extern "C" void onInterruptSignal(int signal) {
    // The second request to stop is not waited on; only what is safe in a handler is done.
    if (gInterruptSignal.exchange(signal, std::memory_order_relaxed) != 0) {
        if (gPartialFileSet.load())
            ::unlink(gPartialFile);
        // Ended by the signal itself, so that a shell loop running tesk-render stops too.
        ::signal(signal, SIG_DFL);
        ::raise(signal);
    }
}

/// The file a second interrupt removes; none with an empty path.
void setPartialFile(const QString& path) {
    gPartialFileSet = false;
    const QByteArray bytes = QFile::encodeName(path);
    if (bytes.isEmpty() || bytes.size() >= qsizetype(sizeof gPartialFile))
        return;
    std::memcpy(gPartialFile, bytes.constData(), std::size_t(bytes.size()) + 1);
    gPartialFileSet = true;
}

} // namespace

RenderCommand::RenderCommand(RenderOptions options, QObject* parent)
    : QObject(parent)
    , mOptions(std::move(options))
    , mProgress(RenderProgress::styleFor(stderr, mOptions.quiet), stderr) {
    mPollTimer.setInterval(kPollMilliseconds);
    connect(&mPollTimer, &QTimer::timeout, this, &RenderCommand::poll);
    mDrainTimer.setSingleShot(true);
    mDrainTimer.setInterval(kDrainMilliseconds);
    connect(&mDrainTimer, &QTimer::timeout, this, [this] {
        mPlaying = false;
        mPlayer->stopFilePlaying();
        showPlaybackStatus(mOptions.speed < 0.0 ? 0 : mPlayer->totalFrames());
        mProgress.endLine();
        finish(kRenderDone);
    });
}

RenderCommand::~RenderCommand() {
    mCancelRequested = true;
    if (mPlayer)
        mPlayer->cancelWriteToFile();
    if (mFile)
        mFile->stopDecoding();
    if (mWorker.joinable())
        mWorker.join();
    if (mPlayer)
        mPlayer->setDelegate(nullptr);
}

void RenderCommand::installInterruptHandlers() {
    struct sigaction action = {};
    action.sa_handler = onInterruptSignal;
    sigemptyset(&action.sa_mask);
    // One request to stop is a polite one; the second is not waited on (see the handler).
    action.sa_flags = SA_RESTART;
    // A closed terminal or a dropped connection ends a render as Ctrl-C does, unless whoever
    // started it ignored that signal (nohup, a script's trap).
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current = {};
        if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN)
            continue;
        sigaction(signal, &action, nullptr);
    }
}

int RenderCommand::exec() {
    if (!mOptions.documentPath.isEmpty()) {
        if (const auto exitCode = readDocument())
            return *exitCode;
    }
    std::optional<TeskError> error;
    mFile = TeskExtendedAudioFile::openForPlayback(mOptions.inputPath, &error);
    if (!mFile) {
        reportError(error ? error->localizedDescription()
                          : QStringLiteral("cannot read %1").arg(mOptions.inputPath));
        return kRenderInputUnreadable;
    }
    mPollTimer.start();
    if (mOptions.info)
        showInfo();
    else if (!mOptions.saveDocumentPath.isEmpty())
        saveDocument();
    else if (!mOptions.outputPath.isEmpty())
        exportSong();
    else
        playSong();
    if (!mExitCode)
        mLoop.exec();
    mPollTimer.stop();
    return mExitCode.value_or(kRenderInterrupted);
}

void RenderCommand::finish(int exitCode) {
    if (mExitCode)
        return;
    mExitCode = exitCode;
    mLoop.exit(exitCode);
}

bool printToStandardOutput(const QString& text) {
    errno = 0;
    std::fputs(text.toLocal8Bit().constData(), stdout);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    const int reason = errno;
    std::fprintf(stderr, "tesk-render: cannot write to standard output: %s\n",
                 std::strerror(reason != 0 ? reason : EIO));
    return false;
}

void RenderCommand::reportError(const QString& message) {
    mProgress.endLine();
    std::fputs(("tesk-render: " + message + '\n').toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

void RenderCommand::warnAboutDecoding() {
    if (const auto error = mFile->decodingError())
        reportError(QStringLiteral("warning: %1").arg(error->localizedDescription()));
}

std::optional<RenderCommand::WorkResult> RenderCommand::waitForWholeSong() {
    mFile->waitUntilDecoded();
    if (mCancelRequested)
        return WorkResult{kRenderInterrupted, {}};
    if (mFile->decodedFrameCount() == 0) {
        const auto error = mFile->decodingError();
        return WorkResult{kRenderInputUnreadable,
                          error ? error->localizedDescription()
                                : QStringLiteral("no sound in %1").arg(mOptions.inputPath)};
    }
    // Cut short by a full disk, not by its file: nothing made of it may pass for the song.
    if (const auto noRoom = mFile->noRoomError())
        return WorkResult{kRenderInputUnreadable, noRoom->localizedDescription()};
    return std::nullopt;
}

void RenderCommand::runInBackground(std::function<WorkResult()> work,
                                    void (RenderCommand::*done)(const WorkResult&)) {
    mWorker = std::thread([this, work = std::move(work), done] {
        clearVectorUpperState();
        const WorkResult result = work();
        QMetaObject::invokeMethod(
            this,
            [this, result, done] {
                mWorker.join();
                (this->*done)(result);
            },
            Qt::QueuedConnection);
    });
}

// --- Documents ------------------------------------------------------------------------------

std::optional<int> RenderCommand::readDocument() {
    QString error;
    const std::optional<RenderDocument> document =
        readRenderDocument(mOptions.documentPath, &error);
    if (!document) {
        reportError(error);
        return kRenderInputUnreadable;
    }
    if (!applyDocumentSettings(document->contents, mOptions, &error)) {
        reportError(error);
        return kRenderBadUsage;
    }
    mOptions.inputPath = document->songPath;
    return std::nullopt;
}

bool RenderCommand::refuseToWriteOverInput(const QString& path) {
    // It would be read while it is replaced; a link to it is the same file.
    if (QFileInfo(path).canonicalFilePath() != QFileInfo(mOptions.inputPath).canonicalFilePath())
        return false;
    reportError(QStringLiteral("cannot write %1: it is the song being read").arg(path));
    finish(kRenderOutputUnwritable);
    return true;
}

void RenderCommand::saveDocument() {
    if (refuseToWriteOverInput(mOptions.saveDocumentPath))
        return;
    // The same checks as an export: INPUT has to decode, and the loop and markers have to fit
    // the song's exact length.
    runInBackground([this] { return waitForWholeSong().value_or(WorkResult{}); },
                    &RenderCommand::saveDocumentDidEnd);
}

void RenderCommand::saveDocumentDidEnd(const WorkResult& result) {
    const QString& path = mOptions.saveDocumentPath;
    if (mInterrupted || result.exitCode == kRenderInterrupted) {
        reportError(QStringLiteral("interrupted; %1 was not written").arg(path));
        finish(kRenderInterrupted);
        return;
    }
    if (result.exitCode != kRenderDone) {
        reportError(result.message);
        finish(result.exitCode);
        return;
    }
    warnAboutDecoding();
    // INPUT as the user named it, from the current folder: the reference would take a
    // relative path from the document's folder.
    const std::optional<TeskFileReference> song =
        TeskFileReference::fromPath(QFileInfo(mOptions.inputPath).absoluteFilePath(), path);
    if (!song) {
        reportError(QStringLiteral("a document can only refer to a file, not to %1")
                        .arg(mOptions.inputPath));
        finish(kRenderInputUnreadable);
        return;
    }
    QString error;
    const std::optional<TeskDocumentContents> contents =
        newDocumentContents(mOptions, *song, mFile->frameCount(), &error);
    if (!contents) {
        reportError(error);
        finish(kRenderBadUsage);
        return;
    }
    if (!writeDocumentFile(path, *contents, &error)) {
        reportError(QStringLiteral("cannot write %1: %2").arg(path, error));
        finish(kRenderOutputUnwritable);
        return;
    }
    finish(kRenderDone);
}

// --- Info -----------------------------------------------------------------------------------

void RenderCommand::showInfo() {
    // The length is only exact once everything is decoded.
    runInBackground(
        [this] {
            mFile->waitUntilDecoded();
            return WorkResult{};
        },
        &RenderCommand::infoDidEnd);
}

void RenderCommand::infoDidEnd(const WorkResult&) {
    if (mInterrupted) {
        reportError(QStringLiteral("interrupted"));
        finish(kRenderInterrupted);
        return;
    }
    warnAboutDecoding();
    const SongFileInfo info = mFile->info();
    QString text = QStringLiteral("frames: %1\nduration: %2 s\nsample rate: %3 Hz\nchannels: "
                                  "%4\ncodec: %5\n")
                       .arg(info.frameCount)
                       .arg(info.durationSeconds, 0, 'f', 3)
                       .arg(info.sourceSampleRate, 0, 'g', 10)
                       .arg(info.sourceChannels)
                       .arg(info.codecName);
    // Every line is there, tagged or not, so that a script can read them by name.
    const SongMetadata metadata = readSongMetadata(mOptions.inputPath).value_or(SongMetadata{});
    const QString none = QStringLiteral("(none)");
    const std::pair<const char*, QString> tags[] = {
        {"title", metadata.title}, {"artist", metadata.artist}, {"album", metadata.album}};
    for (const auto& [key, value] : tags)
        text += QStringLiteral("%1: %2\n").arg(QLatin1String(key), value.isEmpty() ? none : value);
    QString cover = none;
    if (!metadata.coverImage.isEmpty())
        cover = QStringLiteral("%1, %2 bytes")
                    .arg(metadata.coverMimeType.isEmpty() ? QStringLiteral("picture")
                                                          : metadata.coverMimeType)
                    .arg(metadata.coverImage.size());
    text += QStringLiteral("cover: %1\n").arg(cover);
    finish(printToStandardOutput(text) ? kRenderDone : kRenderOutputUnwritable);
}

// --- Export ---------------------------------------------------------------------------------

void RenderCommand::exportSong() {
    if (QFileInfo(mOptions.outputPath).isDir()) {
        reportError(QStringLiteral("cannot write %1: it is a folder").arg(mOptions.outputPath));
        finish(kRenderOutputUnwritable);
        return;
    }
    if (refuseToWriteOverInput(mOptions.outputPath))
        return;
    // Everything is written into a file of our own first, so that whatever was at OUTPUT
    // survives a failed or cancelled export.
    QString error;
    mTemporary = ExportTemporaryFile::create(mOptions.outputPath, &error);
    if (mTemporary)
        setPartialFile(mTemporary->path());
    if (!mTemporary) {
        reportError(QStringLiteral("cannot write %1: %2").arg(mOptions.outputPath, error));
        finish(kRenderOutputUnwritable);
        return;
    }
    mPlayer = std::make_unique<TeskExtendedAudioFilePlayer>(mFile, true, mOptions.quality);
    configurePlayer();
    mPlayer->setSongMetadata(readSongMetadata(mOptions.inputPath).value_or(SongMetadata{}));
    mPlayer->setDelegate(this);
    mExporting = true;
    mProgress.showExport(0.0);
    runInBackground([this] { return runExport(); }, &RenderCommand::exportDidEnd);
}

RenderCommand::WorkResult RenderCommand::runExport() {
    // The export needs the song's exact length, and decoding is far quicker than rendering.
    if (const auto failed = waitForWholeSong())
        return *failed;
    const qint64 totalFrames = mFile->frameCount();
    QString error;
    const auto frames = framesToPlay(totalFrames, &error);
    if (!frames)
        return {kRenderBadUsage, error};
    // Backwards, the reader's position is the boundary below which it plays: the end.
    const LoopRange range{std::uint32_t(frames->first),
                          std::uint32_t(frames->second - frames->first)};
    try {
        switch (mPlayer->writeSamplesInRange(range, mTemporary->path())) {
        case TeskOutputAudioUnit::ExportOutcome::Written:
            return {kRenderDone, {}};
        case TeskOutputAudioUnit::ExportOutcome::Cancelled:
            return {kRenderInterrupted, {}};
        case TeskOutputAudioUnit::ExportOutcome::Ignored:
            break;
        }
        return {kRenderBadUsage,
                QStringLiteral("OUTPUT must end in .aif or .m4a: %1").arg(mOptions.outputPath)};
    } catch (const NSXError& exception) {
        // The writer names the file it was given; the user knows it as OUTPUT.
        const QString reason =
            mTemporary->toldOfDestination(exception.error()).localizedDescription();
        return {kRenderOutputUnwritable,
                QStringLiteral("cannot write %1: %2").arg(mOptions.outputPath, reason)};
    } catch (const std::exception& exception) {
        return {kRenderOutputUnwritable,
                QStringLiteral("cannot write %1: %2")
                    .arg(mOptions.outputPath, QString::fromLocal8Bit(exception.what()))};
    }
}

void RenderCommand::exportDidEnd(const WorkResult& result) {
    mExporting = false;
    // Progress still on its way from the player would redraw the finished bar.
    mPlayer->setDelegate(nullptr);
    int exitCode = mInterrupted ? kRenderInterrupted : result.exitCode;
    QString message = result.message;
    QString error;
    if (exitCode == kRenderDone && !mTemporary->commit(&error)) {
        exitCode = kRenderOutputUnwritable;
        message = QStringLiteral("cannot write %1: %2").arg(mOptions.outputPath, error);
    }
    mTemporary.reset(); // removed unless it took OUTPUT's place
    setPartialFile({});

    if (exitCode == kRenderDone)
        mProgress.finishExport();
    if (!message.isEmpty())
        reportError(message);
    if (exitCode == kRenderInterrupted)
        reportError(QStringLiteral("interrupted; %1 was not written").arg(mOptions.outputPath));
    if (exitCode != kRenderInputUnreadable) // which has said why already
        warnAboutDecoding();
    finish(exitCode);
}

std::optional<std::pair<qint64, qint64>> RenderCommand::framesToPlay(qint64 totalFrames,
                                                                     QString* error) const {
    qint64 first = 0;
    qint64 end = totalFrames;
    if (mOptions.range) {
        first = framesAtSeconds(mOptions.range->start);
        end = framesAtSeconds(mOptions.range->end);
    } else if (mOptions.frameRange) {
        first = mOptions.frameRange->first;
        end = mOptions.frameRange->end;
    }
    end = std::min(end, totalFrames);
    if (first >= end) {
        const QString what =
            mOptions.range ? QStringLiteral("--range")
                           : QStringLiteral("the loop range of %1").arg(mOptions.documentPath);
        // One arg() for both: a "%1" in a document's path must stay as it is.
        *error = first < totalFrames
                     ? QStringLiteral("%1 is shorter than one frame").arg(what)
                     : QStringLiteral("%1 starts after the end of the song (%2 s)")
                           .arg(what, QString::number(double(totalFrames) / kEngineRate, 'f', 3));
        return std::nullopt;
    }
    return std::pair{first, end};
}

// --- Playback -------------------------------------------------------------------------------

void RenderCommand::playSong() {
    // While the song decodes its length is the container's estimate, close enough to place
    // the range.
    QString error;
    const auto frames = framesToPlay(mFile->frameCount(), &error);
    if (!frames) {
        reportError(error);
        finish(kRenderBadUsage);
        return;
    }
    std::shared_ptr<const DecodedFrames> song = mFile;
    if (mOptions.range || mOptions.frameRange) {
        song = std::make_shared<SongPart>(mFile, frames->first, frames->second);
        mPartOffset = frames->first;
    }
    mPlayer = std::make_unique<TeskExtendedAudioFilePlayer>(song, false, mOptions.quality);
    configurePlayer();
    mPlayer->setDelegate(this);
    // Backwards, the position is the boundary below which the reader plays: the end.
    mPlayer->setCurrentFrame(mOptions.speed < 0.0 ? mPlayer->totalFrames() : 0);
    mPlayer->startFilePlaying();
    // Playing on silently keeps the status line, the timing and the exit codes what they
    // would be with sound, which a script checking a song can rely on.
    if (!mPlayer->outputAudioUnit()->hasSoundOutput())
        reportError(QStringLiteral("warning: %1 Playing on silently.")
                        .arg(mPlayer->outputAudioUnit()->noSoundReason()));
    mPlaying = true;
    showPlaybackStatus(mPlayer->currentFrame());
}

void RenderCommand::showPlaybackStatus(qint64 frame) {
    const auto seconds = [this](qint64 partFrame) {
        return double(mPartOffset + partFrame) / kEngineRate;
    };
    const qint64 total = mPlayer->totalFrames();
    const bool backwards = mOptions.speed < 0.0;
    mProgress.showPlayback(seconds(frame), seconds(backwards ? total : 0),
                           seconds(backwards ? 0 : total), float(mOptions.speed),
                           mOptions.pitchSemitones);
}

void RenderCommand::audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer*) {
    if (mReachedEnd || !mPlaying)
        return;
    mReachedEnd = true;
    mDrainTimer.start();
}

void RenderCommand::audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer*,
                                                             double progress) {
    mProgress.showExport(progress);
}

// --- Both -----------------------------------------------------------------------------------

void RenderCommand::configurePlayer() {
    mPlayer->setPlaybackSpeed(float(mOptions.speed));
    mPlayer->setPlaybackPitchInSemitones(mOptions.pitchSemitones);
    mPlayer->setPlaybackLevel(float(mOptions.level));
    if (mOptions.equalizerBands) {
        TeskEqualizerSettings settings;
        settings.setBands(*mOptions.equalizerBands);
        mPlayer->setEqualizerSettings(&settings);
        mPlayer->setEqualizerEnabled(true);
    }
    if (mOptions.vocalBand) {
        TeskVocalReductionEffectSettings settings;
        settings.setLowFrequency(mOptions.vocalBand->low);
        settings.setHighFrequency(mOptions.vocalBand->high);
        mPlayer->setVocalReductionEffectSettings(&settings);
        mPlayer->setVocalRemoval(true);
    }
    if (mOptions.panAdjust) {
        mPlayer->setPanAmount(mOptions.panAmount);
        mPlayer->setOutOfPhase(mOptions.outOfPhase);
        mPlayer->setPanAdjust(true);
    }
}

void RenderCommand::poll() {
    if (!mInterrupted && gInterruptSignal.load(std::memory_order_relaxed) != 0) {
        mInterrupted = true;
        mCancelRequested = true;
        // Lets an export or --info still waiting for the decoder go at once.
        mFile->stopDecoding();
        if (mPlaying) {
            mPlaying = false;
            mPlayer->stopFilePlaying();
            reportError(QStringLiteral("interrupted"));
            finish(kRenderInterrupted);
            return;
        }
    }
    // Repeated while the export runs: one that had not begun yet when the first cancel came
    // would clear it as it starts.
    if (mInterrupted && mExporting)
        mPlayer->cancelWriteToFile();
    // Playback starts before the song is decoded; a damaged file is told of once it is.
    if (mPlaying && !mToldOfDecoding && mFile->isDecodingFinished()) {
        mToldOfDecoding = true;
        warnAboutDecoding();
    }
    if (++mPolls % kPollsPerRedraw != 0)
        return;
    if (mExporting)
        mProgress.tick();
    else if (mPlaying && !mReachedEnd)
        showPlaybackStatus(mPlayer->currentFrame());
}

} // namespace tesk
