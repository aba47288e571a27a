#include "audio/TeskOutputAudioUnit.h"

#include "audio/ProcessingChainPool.h"

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

} // namespace tesk
