#include "audio/TeskOutputAudioUnit.h"

#include "audio/ProcessingChainPool.h"
#include "audio/TeskAudioFileWriter.h"
#include "diagnostics/NSXReturnThrowError.h"

#include <QFileInfo>
#include <QMetaObject>
#include <cmath>

namespace tesk {
namespace {
constexpr int kDeviceWatchMilliseconds = 500;
}

TeskOutputAudioUnit::TeskOutputAudioUnit(const AudioStreamDescription& streamDescription, bool,
                                         TimePitchQuality quality, QObject* parent)
    : QObject(parent)
    , mStreamDescription(streamDescription)
    , mChain(ProcessingChainPool::take(quality))
    , mRenderer(*mChain)
    , mEqualizerSettings(std::make_unique<TeskEqualizerSettings>())
    , mVocalReductionEffectSettings(TeskVocalReductionEffectSettings().copy()) {
    mChain->setVocalBand(150.0, 3600.0);
    mDeviceWatch.setInterval(kDeviceWatchMilliseconds);
    connect(&mDeviceWatch, &QTimer::timeout, this, &TeskOutputAudioUnit::checkDevice);
}

TeskOutputAudioUnit::~TeskOutputAudioUnit() {
    mDelegate = nullptr;
    mRenderer.stop();
}

void TeskOutputAudioUnit::setOutputAudioUnitHandler(ChainSource* handler) {
    mChain->setSource(handler);
}

void TeskOutputAudioUnit::openDevice() {
    mNoSoundReason.clear();
    if (mDeviceFactory)
        mDevice = mDeviceFactory(mRenderer);
    else
        mDevice = openDefaultSoundDevice(mRenderer, &mNoSoundReason);
    if (!mDevice->hasSoundOutput() && mNoSoundReason.isEmpty())
        mNoSoundReason = tr("Playing without sound output.");
    emit soundOutputChanged();
}

void TeskOutputAudioUnit::setSoundDeviceFactory(SoundDeviceFactory factory) {
    mDeviceFactory = std::move(factory);
    mDevice.reset();
}

void TeskOutputAudioUnit::useSilentDevice() {
    setSoundDeviceFactory([](AudioRenderer& renderer) {
        return openSilentSoundDevice(renderer, TeskSoundDevice::kDefaultBufferFrames);
    });
}

void TeskOutputAudioUnit::start() {
    if (isRunning())
        return;
    if (!mDevice)
        openDevice();
    mRenderer.start(*mDevice);
    mDeviceWatch.start();
    if (mDelegate)
        mDelegate->audioUnitDidStart(this);
    emit OutputAudioUnitDidStartNotification();
}

void TeskOutputAudioUnit::stop() {
    if (!isRunning())
        return;
    mDeviceWatch.stop();
    mRenderer.stop();
    if (mDelegate)
        mDelegate->audioUnitDidStop(this);
    emit OutputAudioUnitDidStopNotification();
}

bool TeskOutputAudioUnit::isRunning() const {
    return mRenderer.isRunning();
}

void TeskOutputAudioUnit::flush() {
    mRenderer.flush();
}

void TeskOutputAudioUnit::checkDevice() {
    if (!mDevice || !mDevice->isLost())
        return;
    // The device went away (unplugged): carry on with the default device as it is now, or
    // the silent one, without stopping the song.
    mRenderer.stop();
    mDevice.reset();
    openDevice();
    mRenderer.start(*mDevice);
}

void TeskOutputAudioUnit::setPlaybackRate(float rate) {
    mChain->setRate(rate);
}
float TeskOutputAudioUnit::playbackRate() const {
    return mChain->rate();
}
void TeskOutputAudioUnit::setPlaybackPitch(float cents) {
    mChain->setPitchCents(cents);
}
float TeskOutputAudioUnit::playbackPitch() const {
    return mChain->pitchCents();
}
void TeskOutputAudioUnit::setPlaybackLevel(float level) {
    mChain->setLevel(level);
}
float TeskOutputAudioUnit::playbackLevel() const {
    return mChain->level();
}

void TeskOutputAudioUnit::setEqualizerEnabled(bool enabled) {
    mChain->setEqualizerEnabled(enabled);
    emit equalizerEnabledChanged();
}

bool TeskOutputAudioUnit::equalizerEnabled() const {
    return mChain->equalizerEnabled();
}

void TeskOutputAudioUnit::setEqualizerSettings(const TeskEqualizerSettings* settings) {
    mEqualizerSettings = settings ? settings->copy() : std::make_unique<TeskEqualizerSettings>();
    std::array<float, ProcessingChain::kBandCount> gains{};
    for (int band = 0; band < int(gains.size()); ++band)
        gains[band] = float(mEqualizerSettings->gainOfBand(band));
    mChain->setEqualizerGains(gains);
}

void TeskOutputAudioUnit::setRemoveVocals(bool enabled) {
    mChain->setRemoveVocals(enabled);
}
bool TeskOutputAudioUnit::removeVocals() const {
    return mChain->removeVocals();
}

void TeskOutputAudioUnit::setVocalReductionEffectSettings(
    const TeskVocalReductionEffectSettings* settings) {
    mVocalReductionEffectSettings =
        settings ? settings->copy() : std::make_unique<TeskVocalReductionEffectSettings>();
    mChain->setVocalBand(mVocalReductionEffectSettings->lowFrequency(),
                         mVocalReductionEffectSettings->highFrequency());
}

void TeskOutputAudioUnit::setPanAdjust(bool enabled) {
    mChain->setPanAdjust(enabled);
}
bool TeskOutputAudioUnit::panAdjust() const {
    return mChain->panAdjust();
}
void TeskOutputAudioUnit::setPanAmount(double amount) {
    mChain->setPanAmount(amount);
}
double TeskOutputAudioUnit::panAmount() const {
    return mChain->panAmount();
}
void TeskOutputAudioUnit::setOutOfPhase(bool outOfPhase) {
    mChain->setOutOfPhase(outOfPhase);
}
bool TeskOutputAudioUnit::outOfPhase() const {
    return mChain->outOfPhase();
}

std::vector<float> TeskOutputAudioUnit::frequencyTable() {
    return mChain->spectrumAnalyzer().frequencyTable();
}

std::vector<float> TeskOutputAudioUnit::frequencyResponseForChannel(unsigned channel) {
    return mChain->spectrumAnalyzer().spectrumForChannel(channel);
}

bool TeskOutputAudioUnit::hasSoundOutput() const {
    return mDevice && mDevice->hasSoundOutput();
}

double TeskOutputAudioUnit::heardSourceFrame() const {
    return mRenderer.hasHeardPosition() ? mRenderer.heardSourceFrame() : -1.0;
}

TeskOutputAudioUnit::ExportOutcome TeskOutputAudioUnit::writeSamples(qint64 sourceFrameCount,
                                                                     const QString& path,
                                                                     const SongMetadata& metadata) {
    const auto format = TeskAudioFileWriter::formatForExtension(QFileInfo(path).suffix());
    if (!format)
        return ExportOutcome::Ignored;
    mCancelExport = false;
    mExportingAudio = true;
    struct ExportingFlag {
        std::atomic<bool>& flag;
        ~ExportingFlag() { flag = false; }
    } exporting{mExportingAudio};

    std::optional<TeskError> error;
    auto writer = TeskAudioFileWriter::create(path, *format, metadata, &error);
    if (!writer)
        throw NSXError(*error);

    mChain->beginExport();
    const auto totalFrames = std::int64_t(std::llrint(double(sourceFrameCount) / mChain->rate()));
    std::vector<float> left(kExportSliceFrames);
    std::vector<float> right(kExportSliceFrames);
    std::int64_t sampleTime = 0;
    std::int64_t lastReported = 0;
    bool cancelled = mCancelExport.load();
    while (!cancelled && totalFrames > sampleTime) {
        // Whole slices: a short end is silence.
        std::uint32_t filled = 0;
        while (filled < kExportSliceFrames) {
            const std::uint32_t rendered = mChain->renderForExport(
                left.data() + filled, right.data() + filled, kExportSliceFrames - filled);
            if (rendered == 0)
                break;
            filled += rendered;
        }
        std::fill(left.begin() + filled, left.end(), 0.0f);
        std::fill(right.begin() + filled, right.end(), 0.0f);
        sampleTime += kExportSliceFrames;
        if (!writer->write(left.data(), right.data(), kExportSliceFrames, &error))
            throw NSXError(*error);
        cancelled = mCancelExport.load();
        if (!cancelled && sampleTime - lastReported > 22050) {
            const double progress = std::min(1.0, double(sampleTime) / double(totalFrames));
            QMetaObject::invokeMethod(
                this, [this, progress] { notifyDelegateOfExportProgress(progress); },
                Qt::QueuedConnection);
            lastReported = sampleTime;
        }
    }
    if (!writer->finish(&error) && !(cancelled && sampleTime == 0))
        throw NSXError(*error);
    return cancelled ? ExportOutcome::Cancelled : ExportOutcome::Written;
}

void TeskOutputAudioUnit::notifyDelegateOfExportProgress(double progress) {
    if (mDelegate)
        mDelegate->outputAudioUnitDidUpdateProgress(this, progress);
}

} // namespace tesk
