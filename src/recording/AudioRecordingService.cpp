#include "recording/AudioRecordingService.h"

#include <sndfile.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <random>
#include <system_error>

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "recording/AudioMixer.h"
#include "recording/BluetoothAudioRouteManager.h"
#include "recording/NumberText.h"
#include "recording/SystemAudioController.h"

namespace vocle {

namespace fs = std::filesystem;

namespace {

std::string pathText(const std::optional<fs::path>& p) {
    return p ? p->string() : "nil";
}

double now(const MainQueue& q) {
    return q.clock().now();
}

}  // namespace

// The open system-audio file and the last level, shared between the sample handler on the
// system-audio queue and the main queue, which closes the file once the stream has stopped.
struct AudioRecordingService::SystemAudioSink {
    fs::path target;
    std::function<bool()> silenced;
    std::atomic<float> lastAveragePower{-60.0f};

    std::mutex mutex;
    SNDFILE* file = nullptr;
    double sampleRate = 0;
    int channels = 0;
    bool closed = false;
    std::vector<float> silence;

    ~SystemAudioSink() { close(); }

    void close() {
        std::lock_guard lock(mutex);
        closed = true;
        if (file) sf_close(file);
        file = nullptr;
    }
    bool isOpen() {
        std::lock_guard lock(mutex);
        return file != nullptr;
    }

    void handle(const AudioSampleBuffer& buffer) {
        if (buffer.channels <= 0 || buffer.sampleRate <= 0 || !buffer.samples) return;
        std::lock_guard lock(mutex);
        if (closed) return;
        if (channels == 0) {
            sampleRate = buffer.sampleRate;
            channels = buffer.channels;
        }
        if (!file) {
            SF_INFO info{};
            info.samplerate = static_cast<int>(sampleRate);
            info.channels = channels;
            info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
            file = sf_open(target.c_str(), SFM_WRITE, &info);
            if (!file) {
                log("SC audio write error: ", sf_strerror(nullptr));
                return;
            }
            log("📄 SC: Opened audio file for writing at ", target.string());
        }
        if (buffer.channels != channels || buffer.sampleRate != sampleRate) {
            log("SC audio write error: the stream changed its format to ", buffer.channels, " channels at ",
                buffer.sampleRate, " Hz");
            return;
        }
        const float* samples = buffer.samples;
        if (silenced && silenced()) {
            silence.assign(buffer.frames * static_cast<size_t>(channels), 0.0f);
            samples = silence.data();
        }
        // 20·log10 of the mean square (not of the RMS); the speech threshold is set against this scale.
        double sum = 0;
        for (int c = 0; c < channels; ++c) {
            double sq = 0;
            for (size_t i = 0; i < buffer.frames; ++i) {
                const double v = samples[i * channels + c];
                sq += v * v;
            }
            sum += buffer.frames ? sq / static_cast<double>(buffer.frames) : 0.0;
        }
        const double m = sum / channels;
        const double level = std::clamp(20.0 * std::log10(std::max(m, 1e-7)), -60.0, 0.0);
        lastAveragePower.store(static_cast<float>(level));
        const auto written = sf_writef_float(file, samples, static_cast<sf_count_t>(buffer.frames));
        if (written != static_cast<sf_count_t>(buffer.frames))
            log("SC audio write error: ", sf_strerror(file));
    }
};

AudioRecordingService::AudioRecordingService(AudioRecordingServiceDependencies deps) : d_(std::move(deps)) {
    if (!d_.random) {
        auto engine = std::make_shared<std::mt19937>(std::random_device{}());
        d_.random = [engine] { return std::uniform_real_distribution<double>(0.0, 1.0)(*engine); };
    }
}

AudioRecordingService::~AudioRecordingService() {
    levelTimer_.cancel();
    abandonedRecordingTimer_.cancel();
    activeRecordingTimer_.cancel();
}

void AudioRecordingService::setRecordingContext(const Mode& mode, const std::string& vocabulary,
                                                const std::vector<Replacement>& replacements) {
    selectedMode_ = mode;
    vocabWords_ = vocabulary;
    textReplacements_ = replacements;
}

// MARK: start path

void AudioRecordingService::startRecording() {
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - startRecording() called");
    f_.isCancelled = false;
    f_.recordingStartTime = now(d_.mainQueue);
    f_.maxObservedDBFS = kLevelFloor;
    f_.hasExceededSpeechThreshold = false;

    if (f_.isCleanupInProgress) {
        // The start is dropped, not delayed: the user presses again once the previous one is done.
        log("⏳ Cleanup from previous recording still in progress. Delaying start.");
        return;
    }
    if (captureSession_ || audioOutput_) {
        log("⚠️ CaptureSession/audioOutput not nil before start. Forcing preflight reset.");
        resetCaptureState();
    }
    if (!selectedMode_) {
        errorMessage.set("No mode selected");
        return;
    }
    log("▶️ startRecording invoked. mode.recordSystemAudio? ",
        boolText(selectedMode_->recordSystemAudio));
    if (!selectedMode_->recordSystemAudio) playStartSoundByModeRule();

    processedText.set("");
    errorMessage.set(std::nullopt);

    switch (d_.capture.authorizationStatus()) {
        case MicrophoneAuthorization::authorized:
            continueWithRecording();
            break;
        case MicrophoneAuthorization::restricted:
        case MicrophoneAuthorization::denied:
            errorMessage.set(
                "Microphone access is restricted or denied. Please enable it in System Settings.");
            d_.systemAudio.restoreSystemAudio();
            break;
        case MicrophoneAuthorization::notDetermined: {
            auto onMain = token_.guard([this](bool granted) {
                if (granted) {
                    continueWithRecording();
                } else {
                    errorMessage.set("Microphone permission denied");
                    d_.systemAudio.restoreSystemAudio();
                }
            });
            MainQueue* queue = &d_.mainQueue;
            d_.capture.requestAccess([queue, onMain](bool granted) mutable {
                queue->post([onMain, granted]() mutable { onMain(granted); });
            });
            break;
        }
        default:
            errorMessage.set("Unknown authorization status for microphone");
            d_.systemAudio.restoreSystemAudio();
            break;
    }
}

void AudioRecordingService::playStartSoundByModeRule() {
    if (selectedMode_ && selectedMode_->muteWhileRecording) {
        d_.systemAudio.playStartSoundThenMute();
    } else {
        log("🔊 Playing start sound without muting");
        d_.systemAudio.playSoundEffect("start");
    }
}

fs::path AudioRecordingService::temporaryFile(const std::string& name) const {
    return d_.temporaryDirectory / name;
}

void AudioRecordingService::removeStaleFile(const fs::path& path) {
    std::error_code ec;
    if (!fs::exists(path, ec)) return;
    if (!fs::remove(path, ec) && ec) log("⚠️ Could not remove existing temp file: ", ec.message());
}

void AudioRecordingService::continueWithRecording() {
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)),
        " - continueWithRecording() - permissions granted");
    resetCaptureState();
    scheduleAbandonedRecordingTimeout();

    const auto ts = std::to_string(static_cast<long long>(std::floor(now(d_.mainQueue))));
    f_.audioFileURL = temporaryFile("vocle_" + ts + ".wav");
    removeStaleFile(*f_.audioFileURL);
    log("🗂️ Will write audio to: ", f_.audioFileURL->string());
    f_.pendingOutputURL = f_.audioFileURL;
    log("📌 Primed pendingOutputURL at start: ", f_.audioFileURL->string());

    if (!selectedMode_ || !selectedMode_->recordSystemAudio) {
        log("🎙️ Selected capture path: Microphone");
        log("⏱️ Delaying microphone capture start by 0.2s to avoid reconfig race");
        d_.mainQueue.postAfter(0.2, token_.guard([this] { startMicrophoneUnlessCancelled(); }));
        return;
    }

    log("🎛️ Selected capture paths: Microphone + System Audio");
    f_.isSystemCapturePlanned = true;
    f_.micFileURL = temporaryFile("vocle_mic_" + ts + ".wav");
    f_.systemFileURL = temporaryFile("vocle_sys_" + ts + ".wav");
    f_.micRecordingURLOverride = f_.micFileURL;
    removeStaleFile(*f_.micFileURL);
    removeStaleFile(*f_.systemFileURL);

    if (d_.screenCapture.preflightAccess()) {
        f_.didKickOffMicStart = true;
        isRecording.set(true);
        log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - recording started (isRecording = true)");
        playStartSoundByModeRule();
        log("⏱️ Parallel mic start after 0.1s (SC preflight granted)");
        d_.mainQueue.postAfter(0.1, token_.guard([this] { startMicrophoneUnlessCancelled(); }));
        startSystemAudioCapture();
    } else {
        log("ℹ️ SC permission not granted yet; deferring start sound until SC starts");
        startSystemAudioCapture();
    }
}

void AudioRecordingService::resetCaptureState() {
    levelTimer_.cancel();
    levelTimer_ = {};
    abandonedRecordingTimer_.cancel();
    abandonedRecordingTimer_ = {};
    activeRecordingTimer_.cancel();
    activeRecordingTimer_ = {};
    audioLevels.set({0, 0, 0});
    if (f_.pendingOutputURL) {
        log("🧽 Clearing stale pendingOutputURL: ", f_.pendingOutputURL->string());
        f_.pendingOutputURL.reset();
    }
    if (audioOutput_ && audioOutput_->isRecording()) {
        log("⚠️ audioOutput was still recording at preflight. Stopping.");
        audioOutput_->stopRecording();
    }
    if (captureSession_) {
        captureSession_->removeAll();
        if (captureSession_->isRunning()) {
            log("⚠️ captureSession was still running at preflight. Stopping.");
            captureSession_->stopRunning();
        }
    }
    captureSession_.reset();
    audioOutput_.reset();
    audioRecorder_ = false;
    f_.micFileURL.reset();
    f_.systemFileURL.reset();
    f_.micRecordingURLOverride.reset();
    f_.isSystemCapturePlanned = false;
    f_.micFinished = false;
    f_.scFinished = false;
    f_.didKickOffMicStart = false;
    scStream_.reset();
    if (scSink_) scSink_->close();
    scSink_.reset();
}

// MARK: microphone

void AudioRecordingService::startMicrophoneCapture() {
    log("🎙️ Setting up AVCaptureSession for microphone recording…");
    d_.routeManager.snapshotDefaultOutput();

    auto session = d_.capture.makeSession();
    auto output = d_.capture.makeFileOutput();
    if (!session || !output) {
        errorMessage.set("Failed to create capture session");
        log("❌ Failed to create capture session or audio output");
        return;
    }
    captureSession_ = session;
    audioOutput_ = output;

    const auto settings = d_.storage.loadSettings();
    std::optional<CaptureDevice> wanted;
    if (!settings.useSystemDefaultAudio && settings.inputDeviceUID && !settings.inputDeviceUID->empty()) {
        wanted = d_.capture.device(*settings.inputDeviceUID);
    } else {
        wanted = d_.capture.defaultDevice();
    }

    auto inputFailed = [&](const Error& error) {
        errorMessage.set("Failed to configure audio input: " + error.description);
        log("Audio input error: ", error.description);
    };
    if (wanted) {
        log("🔧 Adding audio input: ", wanted->name, " [UID=", wanted->uid, "]");
        if (auto error = session->createInput(*wanted)) return inputFailed(*error);
        if (session->addInput()) {
            log("✅ Added audio input");
        } else {
            log("⚠️ Cannot add audio input to session");
        }
    } else if (auto fallback = d_.capture.defaultDevice()) {
        log("🔧 Adding default audio input: ", fallback->name);
        if (auto error = session->createInput(*fallback)) return inputFailed(*error);
        if (session->addInput()) {
            log("✅ Added default audio input");
        } else {
            log("⚠️ Cannot add default audio input to session");
        }
    } else {
        // The session still starts without an input, as on any refused input; the user learns why
        // nothing is heard.
        errorMessage.set(std::string(kNoMicrophoneMessage));
        log("⚠️ No audio input device available");
    }

    if (session->addOutput(output)) {
        log("✅ Added AVCaptureAudioFileOutput");
    } else {
        log("⚠️ Cannot add AVCaptureAudioFileOutput to session");
    }
    log("▶️ Starting capture session…");
    session->startRunning();
    log("✅ Capture session started");

    const auto target = f_.micRecordingURLOverride ? f_.micRecordingURLOverride : f_.audioFileURL;
    if (target) {
        log("⏱️ Delaying file output start by 0.12s to let connections stabilize (mic)");
        d_.mainQueue.postAfter(0.12, token_.guard([this, url = *target] {
            if (audioOutput_) startFileOutputWhenReady(audioOutput_, url, 30, 0.05);
        }));
    }
    log("🎙️ Microphone recording started via AVCaptureSession (selected device: ",
        wanted ? wanted->name : std::string("Default"), ")");
    if (!f_.isSystemCapturePlanned) isRecording.set(true);
    startLevelTimer();
}

void AudioRecordingService::startFileOutputWhenReady(std::shared_ptr<CaptureFileOutput> output, fs::path url,
                                                     int attemptsLeft, double interval) {
    const auto connections = output->connections();
    size_t channels = 0;
    for (const auto& c : connections) channels += c.channelAveragePowerDb.size();
    bool ready = false;
    for (const auto& c : connections) {
        if (c.enabled) {
            ready = channels > 0;
            break;
        }
    }
    if (ready) return startFileOutput(output, url, false);
    if (attemptsLeft < 1) {
        log("⚠️ Channels not ready after waiting; starting output anyway as fallback");
        return startFileOutput(output, url, true);
    }
    log("⏳ Waiting for audio channels to become ready… attemptsLeft=", attemptsLeft);
    d_.mainQueue.postAfter(interval, token_.guard([this, url, attemptsLeft, interval] {
        // Each retry uses the current output; a stop or cancel that dropped it ends the chain.
        if (audioOutput_) startFileOutputWhenReady(audioOutput_, url, attemptsLeft - 1, interval);
    }));
}

void AudioRecordingService::startFileOutput(const std::shared_ptr<CaptureFileOutput>& output,
                                            const fs::path& url, bool fallback) {
    if (!fallback)
        log("⏺️ Starting audio file output to: ", url.string(), " [type: .wav] (channels ready)");
    auto onMain = token_.guard([this](std::optional<Error> error) { micFileDidFinish(std::move(error)); });
    MainQueue* queue = &d_.mainQueue;
    output->startRecording(url, [queue, onMain](std::optional<Error> error) mutable {
        queue->post([onMain, error]() mutable { onMain(error); });
    });
    if (fallback) {
        log("🔎 audioOutput.isRecording after fallback start: ", boolText(output->isRecording()));
    } else {
        log("🔎 audioOutput.isRecording after start: ", boolText(output->isRecording()));
    }
    d_.mainQueue.postAfter(0.3, token_.guard([output, fallback] {
        log(fallback ? "🔎 audioOutput.isRecording after 300ms (fallback): "
                     : "🔎 audioOutput.isRecording after 300ms: ",
            boolText(output->isRecording()));
    }));
}

void AudioRecordingService::micFileDidFinish(std::optional<Error> error) {
    if (f_.isCancelled) {
        log("🧹 Cancel in effect at fileOutput didFinish — skipping mix/process and cleaning up");
        if (captureSession_ && captureSession_->isRunning()) captureSession_->stopRunning();
        isRecording.set(false);
        captureSession_.reset();
        audioOutput_.reset();
        f_.micFinished = false;
        f_.scFinished = false;
        f_.pendingOutputURL.reset();
        isProcessing.set(false);
        f_.isCleanupInProgress = false;
        return;
    }
    if (captureSession_) {
        log("✅ File writing finished (mic). Stopping capture session.");
        captureSession_->stopRunning();
    }
    isRecording.set(false);
    log("🧹 Cleaning up capture session properties for next recording (mic path).");
    captureSession_.reset();
    audioOutput_.reset();
    if (error) {
        // The file is processed whatever the writer reports; the error only explains a short file.
        log("🔍 AVError diagnostics - domain=", error->domain, ", code=", error->code,
            ", userInfoKeys=[NSLocalizedDescription]");
        log("ℹ️ AVCaptureFileOutput didFinish with an unexpected error: ", error->description);
    }
    f_.micFinished = true;
    log("📌 micFinished=true, scFinished=", boolText(f_.scFinished),
        ", isSystemCapturePlanned=", boolText(f_.isSystemCapturePlanned));
    scheduleRouteRestore();
    maybeMixAndProcess();
}

// MARK: system audio

void AudioRecordingService::startSystemAudioCapture() {
    if (!d_.screenCapture.preflightAccess()) {
        log("🔐 Screen Recording permission not granted. Requesting now…");
        if (!d_.screenCapture.requestAccess()) {
            errorMessage.set("Screen Recording permission is required to capture app audio.");
            d_.systemAudio.restoreSystemAudio();
            stopLevelTimer();
            isRecording.set(false);
            isProcessing.set(false);
            f_.pendingOutputURL.reset();
            f_.isCleanupInProgress = false;
            return;
        }
        log("ℹ️ Screen Recording permission granted. A restart may be required for capture to work.");
    }

    if (!d_.screenCapture.isSupported()) {
        d_.mainQueue.post(token_.guard([this] {
            log("System audio capture requires macOS 13.0 or later. Falling back to microphone-only "
                "recording.");
            if (f_.isSystemCapturePlanned) {
                d_.mainQueue.postAfter(0.2, token_.guard([this] {
                    if (!f_.isCancelled) fallBackToMicrophoneOnly();
                }));
            }
        }));
        return;
    }

    MainQueue* queue = &d_.mainQueue;
    auto failed = token_.guard([this](Error error) { onSystemAudioStartFailed(error); });
    auto started = token_.guard([this](std::optional<Error> error) {
        if (f_.isCancelled) return dropLateSystemStream();
        if (error) return onSystemAudioStartFailed(*error);
        onSystemAudioStarted();
    });
    auto made = token_.guard(
        [this, queue, failed, started](Result<std::shared_ptr<SystemAudioStream>> result) mutable {
            if (f_.isCancelled) {
                log("🚫 Cancel flagged — dropping the system audio stream that was still being set up");
                return;
            }
            if (!result.ok()) return failed(result.error());
            auto stream = result.value();
            scStream_ = stream;
            scSink_ = std::make_shared<SystemAudioSink>();
            scSink_->target = f_.systemFileURL ? *f_.systemFileURL : f_.audioFileURL.value_or(fs::path());
            SystemAudioController* controller = &d_.systemAudio;
            scSink_->silenced = [controller] { return controller->isPlayingSoundEffect(); };
            auto sink = scSink_;
            if (auto error = stream->addAudioOutput(
                    d_.systemAudioQueue, [sink](const AudioSampleBuffer& b) { sink->handle(b); })) {
                return failed(*error);
            }
            stream->startCapture([queue, started](std::optional<Error> error) mutable {
                queue->post([started, error]() mutable { started(error); });
            });
        });
    d_.screenCapture.makeStream([queue, made](Result<std::shared_ptr<SystemAudioStream>> result) mutable {
        queue->post([made, result]() mutable { made(result); });
    });
}

void AudioRecordingService::startMicrophoneUnlessCancelled() {
    // A cancel inside the start delays must not bring the microphone up afterwards.
    if (f_.isCancelled) {
        log("🚫 Cancel flagged — not starting the microphone");
        return;
    }
    startMicrophoneCapture();
}

void AudioRecordingService::dropLateSystemStream() {
    log("🚫 Cancel flagged — stopping the system audio stream that started after the cancel");
    if (!scStream_) return;
    scStream_->stopCapture([](std::optional<Error>) {});
    scStream_.reset();
    if (scSink_) scSink_->close();
    scSink_.reset();
}

void AudioRecordingService::onSystemAudioStarted() {
    log("✅ ScreenCaptureKit audio capture started");
    if (!isRecording.get()) isRecording.set(true);
    startLevelTimer();
    if (!f_.didKickOffMicStart) {
        playStartSoundByModeRule();
        log("⏱️ Mic start after SC by 0.15s (preflight not present)");
        d_.mainQueue.postAfter(0.15, token_.guard([this] { startMicrophoneUnlessCancelled(); }));
    }
}

void AudioRecordingService::onSystemAudioStartFailed(const Error& error) {
    errorMessage.set("Failed to start system audio capture: " + error.description);
    log("System audio recording error (SC): ", error.description);
    d_.systemAudio.restoreSystemAudio();
    stopLevelTimer();
    isRecording.set(false);
    isProcessing.set(false);
    f_.pendingOutputURL.reset();
    f_.isCleanupInProgress = false;
    if (f_.isSystemCapturePlanned) {
        log("⏱️ SC permission denied or start failed; starting microphone-only in 0.2s…");
        d_.mainQueue.postAfter(0.2, token_.guard([this] {
            if (!f_.isCancelled) fallBackToMicrophoneOnly();
        }));
    }
}

void AudioRecordingService::fallBackToMicrophoneOnly() {
    playStartSoundByModeRule();
    f_.micRecordingURLOverride = f_.audioFileURL;
    f_.isSystemCapturePlanned = false;
    startMicrophoneCapture();
}

// MARK: levels and timeouts

void AudioRecordingService::startLevelTimer() {
    if (!levelTimer_.isNull()) return;
    log("Starting audio level timer");
    levelTimer_ =
        d_.mainQueue.scheduleRepeating(kLevelInterval, token_.guard([this] { updateAudioLevels(); }));
}

void AudioRecordingService::stopLevelTimer() {
    log("Stopping audio level timer");
    levelTimer_.cancel();
    levelTimer_ = {};
    audioLevels.set({0, 0, 0});
    if (isRecording.get()) isRecording.set(false);
}

void AudioRecordingService::updateAudioLevels() {
    if (!isRecording.get() || levelTimer_.isNull()) return;
    const float average = kLevelFloor;  // the recorder slot is always empty
    const float peak = kLevelFloor;

    std::optional<float> mic;
    if (audioOutput_ && captureSession_ && captureSession_->isRunning()) {
        double sum = 0;
        size_t count = 0;
        for (const auto& connection : audioOutput_->connections()) {
            for (float db : connection.channelAveragePowerDb) {
                sum += db;
                ++count;
            }
        }
        if (count > 0) mic = static_cast<float>(sum / static_cast<double>(count));
    }
    std::optional<float> sys;
    if (scStream_ && scSink_) sys = scSink_->lastAveragePower.load();

    float level = average;
    if (mic || sys) {
        // Amplitudes are added, not powers.
        double x = (mic ? std::pow(10.0, *mic / 20.0) : 0.0) + (sys ? std::pow(10.0, *sys / 20.0) : 0.0);
        x = std::max(x, 1e-6);
        level = static_cast<float>(std::clamp(20.0 * std::log10(x), -60.0, 0.0));
    }
    const float normalized = std::clamp((level + 60.0f) / 60.0f, 0.0f, 1.0f);
    d_.mainQueue.post(token_.guard(
        [this, mic, sys, peak, level, normalized] { applyLevels(mic, sys, peak, level, normalized); }));
}

void AudioRecordingService::applyLevels(std::optional<float> mic, std::optional<float> sys, float peak,
                                        float level, float normalized) {
    float loudest = peak;
    if (mic) loudest = std::max(loudest, *mic);
    if (sys) loudest = std::max(loudest, *sys);
    f_.maxObservedDBFS = std::max(f_.maxObservedDBFS, loudest);

    if (!f_.hasExceededSpeechThreshold && f_.maxObservedDBFS >= kSpeechThreshold) {
        f_.hasExceededSpeechThreshold = true;
        log("📈 Speech threshold crossed (", numberText(f_.maxObservedDBFS),
            " dBFS >= -40.0). Starting active timeout and cancelling abandoned timeout.");
        abandonedRecordingTimer_.cancel();
        abandonedRecordingTimer_ = {};
        scheduleActiveRecordingTimeout();
    }
    for (size_t bar = 0; bar < 3; ++bar) {
        auto bars = audioLevels.get();
        bars.resize(3);
        bars[bar] = normalized * static_cast<float>(0.8 + 0.4 * d_.random());
        audioLevels.set(bars);
    }
    d_.notifications.post(Notifications::audioLevelUpdate, this,
                          UserInfo{{"level", level}, {"normalizedLevel", normalized}});
}

void AudioRecordingService::scheduleAbandonedRecordingTimeout() {
    abandonedRecordingTimer_.cancel();
    abandonedRecordingTimer_ = {};
    log("⏲️ Scheduling abandoned-recording timeout in 60.0s");
    abandonedRecordingTimer_ = d_.mainQueue.postAfter(kAbandonedTimeout, token_.guard([this] {
        if (isRecording.get() && !f_.hasExceededSpeechThreshold) {
            log("🕰️ Abandoned recording timeout reached without speech — cancelling recording");
            d_.systemAudio.playSoundEffect("stop");
            cancelRecording();
        } else {
            log("ℹ️ Abandoned timeout fired but conditions not met (isRecording=",
                boolText(isRecording.get()), ", hasExceeded=", boolText(f_.hasExceededSpeechThreshold), ")");
        }
    }));
}

void AudioRecordingService::scheduleActiveRecordingTimeout() {
    activeRecordingTimer_.cancel();
    activeRecordingTimer_ = {};
    log("⏲️ Scheduling active-recording timeout in 600.0s");
    activeRecordingTimer_ = d_.mainQueue.postAfter(kActiveTimeout, token_.guard([this] {
        if (!isRecording.get()) return;
        log("🕰️ Active recording timeout reached — auto-stopping and processing");
        d_.systemAudio.playSoundEffect("stop");
        stopRecording();
        d_.mainQueue.post(token_.guard([this] { showRecordingLimitAlert(); }));
    }));
}

void AudioRecordingService::showRecordingLimitAlert() {
    AlertRequest request;
    request.title = "Recording time limit reached";
    request.text =
        "We automatically stopped your recording after the maximum duration. Your audio will be processed as "
        "usual.";
    request.style = AlertStyle::informational;
    request.buttons = {"OK"};
    d_.alerts.show(request, [](int) {});
}

// MARK: stop, cancel, join

void AudioRecordingService::stopRecording() {
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - stopRecording() called");
    log("🛑 stopRecording debug: scStream exists? ", boolText(scStream_ != nullptr));
    if (!f_.audioFileURL) return;

    abandonedRecordingTimer_.cancel();
    abandonedRecordingTimer_ = {};
    activeRecordingTimer_.cancel();
    activeRecordingTimer_ = {};

    if (f_.recordingStartTime) {
        const double elapsed = now(d_.mainQueue) - *f_.recordingStartTime;
        if (elapsed < kShortRecordingLimit) {
            log("⏱️ Short recording (", numberText(elapsed), "s < 0.4s) — treating as cancel");
            cancelRecording();
            return;
        }
    }
    if (f_.maxObservedDBFS < kSpeechThreshold) {
        log("🔇 Max observed dBFS (", numberText(f_.maxObservedDBFS),
            ") did not exceed threshold (-40.0) — treating as cancel");
        cancelRecording();
        return;
    }

    if (!isProcessing.get()) isProcessing.set(true);
    f_.isCleanupInProgress = true;

    if (audioRecorder_) {
        log("⏹️ Stopping AVAudioRecorder…");
        audioRecorder_ = false;
    } else if (captureSession_ && audioOutput_) {
        log("⏹️ Telling AVCaptureAudioFileOutput to stop recording...");
        audioOutput_->stopRecording();
        if (scStream_) {
            log("⏹️ Coordinated stop: also stopping ScreenCaptureKit stream…");
            stopSystemStream(StreamStop::coordinated);
        }
    } else if (scStream_) {
        log("⏹️ Stopping ScreenCaptureKit stream…");
        stopSystemStream(StreamStop::streamOnly);
    }

    stopLevelTimer();
    if (!isProcessing.get()) isProcessing.set(true);
    d_.systemAudio.restoreSystemAudio();
    scheduleRouteRestore();
    f_.pendingOutputURL = f_.micRecordingURLOverride ? f_.micRecordingURLOverride : f_.audioFileURL;
    log("⏳ Waiting for AVCaptureFileOutput to finish writing file (mic)… pendingOutputURL=",
        pathText(f_.pendingOutputURL));
}

void AudioRecordingService::stopSystemStream(StreamStop kind) {
    auto stream = scStream_;
    auto onMain = token_.guard([this, kind](std::optional<Error> error) {
        if (kind == StreamStop::streamOnly) {
            if (error) {
                errorMessage.set("Failed to stop ScreenCaptureKit capture: " + error->description);
                isProcessing.set(false);
                f_.isCleanupInProgress = false;
                return;
            }
            f_.scFinished = true;
            maybeMixAndProcess();
            return;
        }
        if (kind == StreamStop::coordinated) {
            if (error) {
                log("❌ SC stop error (coordinated): ", error->description);
            } else {
                log("✅ SC stream stopped (coordinated)");
            }
        } else if (error) {
            log("❌ SC stop error during cancel: ", error->description);
        }
        // Dropping the sink closes the system-audio file, which completes it on disk.
        scStream_.reset();
        if (scSink_) scSink_->close();
        scSink_.reset();
        f_.scFinished = true;
        maybeMixAndProcess();
    });
    MainQueue* queue = &d_.mainQueue;
    stream->stopCapture([queue, onMain](std::optional<Error> error) mutable {
        queue->post([onMain, error]() mutable { onMain(error); });
    });
}

void AudioRecordingService::scheduleRouteRestore() {
    d_.mainQueue.postAfter(kRouteRestoreDelay,
                           token_.guard([this] { d_.routeManager.restoreOutputIfNeeded(); }));
}

void AudioRecordingService::cancelRecording() {
    log("❌ cancelRecording() called. isRecording=", boolText(isRecording.get()));
    f_.isCancelled = true;
    f_.isCleanupInProgress = true;
    abandonedRecordingTimer_.cancel();
    abandonedRecordingTimer_ = {};
    activeRecordingTimer_.cancel();
    activeRecordingTimer_ = {};
    isProcessing.set(false);
    if (isRecording.get()) isRecording.set(false);
    stopLevelTimer();
    d_.systemAudio.restoreSystemAudio();
    scheduleRouteRestore();
    f_.pendingOutputURL.reset();
    if (audioRecorder_) {
        log("⏹️ (Cancel) Stopping AVAudioRecorder…");
        audioRecorder_ = false;
    }
    if (audioOutput_) {
        log("⏹️ (Cancel) Stopping AVCaptureAudioFileOutput…");
        audioOutput_->stopRecording();
    }
    if (scStream_) {
        log("⏹️ (Cancel) Stopping ScreenCaptureKit stream…");
        stopSystemStream(StreamStop::duringCancel);
    } else {
        maybeMixAndProcess();
    }
}

void AudioRecordingService::maybeMixAndProcess() {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged — skipping processing and cleaning up");
        isProcessing.set(false);
        f_.isCleanupInProgress = false;
        f_.pendingOutputURL.reset();
        return;
    }
    if (!f_.isSystemCapturePlanned) {
        if (f_.pendingOutputURL) {
            log("▶️ Proceeding to process mic-only file: ", f_.pendingOutputURL->string());
            isProcessing.set(true);
            processRecording(*f_.pendingOutputURL);
            f_.isCleanupInProgress = false;
        }
        return;
    }
    log("🧮 maybeMixAndProcess() called. Flags: micFinished=", boolText(f_.micFinished),
        ", scFinished=", boolText(f_.scFinished),
        ", isSystemCapturePlanned=", boolText(f_.isSystemCapturePlanned));
    const bool sinkOpen = scSink_ && scSink_->isOpen();
    const bool scDone = f_.scFinished || (sinkOpen && !scStream_);
    if (!f_.micFinished || !scDone) {
        log("⏳ Waiting for both sources: micDone=", boolText(f_.micFinished), ", scDone=", boolText(scDone));
        return;
    }
    if (!f_.audioFileURL) {
        log("⚠️ No final audioFileURL to write mixed output");
        isProcessing.set(false);
        f_.isCleanupInProgress = false;
        return;
    }
    std::error_code ec;
    // The single-source fallbacks below leave the clean-up flag set on purpose: the next start is
    // refused until a cancel clears it.
    if (!f_.micFileURL || !fs::exists(*f_.micFileURL, ec)) {
        finalizeWithSingle(sinkOpen ? std::optional<fs::path>(scSink_->target) : std::nullopt);
        return;
    }
    std::optional<fs::path> systemFile = f_.systemFileURL;
    if (!systemFile && sinkOpen) systemFile = scSink_->target;
    if (!systemFile || !fs::exists(*systemFile, ec)) {
        finalizeWithSingle(f_.micFileURL);
        return;
    }
    log("🔀 Mixing mic + system into: ", f_.audioFileURL->string());
    if (auto error = mixAudioFiles(*f_.micFileURL, *systemFile, *f_.audioFileURL)) {
        log("❌ Mix failed: ", error->description, ". Falling back to mic only.");
        finalizeWithSingle(f_.micFileURL);
        f_.isCleanupInProgress = false;
        return;
    }
    isProcessing.set(true);
    processRecording(*f_.audioFileURL);
    f_.isCleanupInProgress = false;
}

void AudioRecordingService::finalizeWithSingle(std::optional<fs::path> url) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at finalizeWithSingle — aborting");
        isProcessing.set(false);
        f_.isCleanupInProgress = false;
    } else if (!url) {
        isProcessing.set(false);
    } else {
        log("▶️ Proceeding with single-source file: ", url->string());
        isProcessing.set(true);
        processRecording(*url);
    }
}

std::optional<Error> AudioRecordingService::mixAudioFiles(const fs::path& mic, const fs::path& system,
                                                          const fs::path& output) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at mixAudioFiles — aborting mix");
        return Error{"Vocle.Cancelled", -9999, "Cancelled"};
    }
    return AudioMixer::mix(mic, system, output);
}

// MARK: hand-off

void AudioRecordingService::processRecording(const fs::path& url) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at processRecording — aborting processing");
        isProcessing.set(false);
        f_.isCleanupInProgress = false;
        return;
    }
    if (!selectedMode_) {
        isProcessing.set(false);
        errorMessage.set("No mode selected");
        return;
    }
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - starting audio processing");
    auto onMain = token_.guard([this](Result<std::string> result) {
        isProcessing.set(false);
        if (!result.ok()) {
            log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)),
                " - transcription failed: ", result.error().description);
            errorMessage.set(result.error().description);
            return;
        }
        log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)),
            " - transcription successful, starting clipboard operations");
        processedText.set(result.value());
        d_.paster.copyAndPaste(result.value());
        log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - dictation flow complete");
    });
    MainQueue* queue = &d_.mainQueue;
    d_.processor.processRecording(url, *selectedMode_, vocabWords_, textReplacements_,
                                  [queue, onMain](Result<std::string> result) mutable {
                                      queue->post([onMain, result]() mutable { onMain(result); });
                                  });
}

void AudioRecordingService::audioRecorderDidFinishRecording(bool successfully) {
    if (successfully) return;
    isRecording.set(false);
    isProcessing.set(false);
    errorMessage.set("Recording failed");
}

void AudioRecordingService::audioRecorderEncodeErrorDidOccur(const Error& error) {
    isRecording.set(false);
    isProcessing.set(false);
    errorMessage.set("Recording error: " + error.description);
}

}  // namespace vocle
