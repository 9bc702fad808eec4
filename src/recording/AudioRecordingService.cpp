#include "recording/AudioRecordingService.h"

#include <cmath>
#include <system_error>

#include "core/AppConstants.h"
#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "recording/BluetoothAudioRouteManager.h"
#include "recording/NumberText.h"
#include "recording/SpeechResampler.h"
#include "recording/SystemAudioController.h"

namespace vocle {

namespace fs = std::filesystem;

namespace {

double now(const MainQueue& q) {
    return q.clock().now();
}

}  // namespace

AudioRecordingService::AudioRecordingService(AudioRecordingServiceDependencies deps)
    : d_(std::move(deps)),
      mic_(d_.mainQueue, d_.capture, d_.routeManager, d_.storage),
      sys_(d_.mainQueue, d_.screenCapture, d_.systemAudio, d_.systemAudioQueue),
      finisher_(d_.mainQueue, d_.processor, d_.paster, f_, context_,
                {isProcessing, processedText, errorMessage}) {
    if (!d_.random) d_.random = LevelMeter::defaultRandom();
}

AudioRecordingService::~AudioRecordingService() = default;

void AudioRecordingService::setRecordingContext(const Mode& mode, const std::string& vocabulary,
                                                const std::vector<Replacement>& replacements) {
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    context_ = {mode, vocabulary, replacements};
}

// MARK: start path

std::optional<std::string> AudioRecordingService::inputProblem() const {
    switch (d_.capture.inputAvailability()) {
        case InputAvailability::noSoundServer:
            return std::string(kNoSoundServerMessage);
        case InputAvailability::noInputDevice:
            return std::string(kNoInputDeviceMessage);
        case InputAvailability::available:
            break;
    }
    return std::nullopt;
}

void AudioRecordingService::startRecording() {
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - startRecording() called");
    f_.isCancelled = false;
    f_.recordingStartTime = d_.mainQueue.clock().monotonicNow();
    f_.maxObservedDBFS = kLevelFloor;
    f_.hasExceededSpeechThreshold = false;

    if (f_.isCleanupInProgress) {
        // The start is dropped, not delayed: the user presses again once the previous one is done.
        log("⏳ Cleanup from previous recording still in progress. Delaying start.");
        return;
    }
    if (mic_.hasSession() || mic_.hasOutput()) {
        log("⚠️ CaptureSession/audioOutput not nil before start. Forcing preflight reset.");
        resetCaptureState();
    }
    if (!context_.mode) {
        errorMessage.set("No mode selected");
        return;
    }
    if (auto problem = inputProblem()) {
        log("🚫 Not starting: ", *problem);
        errorMessage.set(*problem);
        return;
    }
    log("▶️ startRecording invoked. mode.recordSystemAudio? ",
        boolText(context_.mode->recordSystemAudio));
    if (!context_.mode->recordSystemAudio) playStartSoundByModeRule();

    processedText.set("");
    partialText.set("");
    errorMessage.set(std::nullopt);

    auto refuse = [this](const char* message) {
        errorMessage.set(std::string(message));
        d_.systemAudio.restoreSystemAudio();
    };
    switch (d_.capture.authorizationStatus()) {
        case MicrophoneAuthorization::authorized:
            return continueWithRecording();
        case MicrophoneAuthorization::restricted:
        case MicrophoneAuthorization::denied:
            return refuse(
                "Microphone access is blocked. Allow Vocle to use the microphone in your desktop's privacy "
                "settings.");
        case MicrophoneAuthorization::notDetermined: {
            return d_.capture.requestAccess(bindToMain(d_.mainQueue, token_, [this, refuse](bool granted) {
                if (!granted) return refuse("Microphone permission denied");
                continueWithRecording();
            }));
        }
        default:
            return refuse("Unknown authorization status for microphone");
    }
}

void AudioRecordingService::playStartSoundByModeRule() {
    if (context_.mode && context_.mode->muteWhileRecording) {
        d_.systemAudio.playStartSoundThenMute();
    } else {
        log("🔊 Playing start sound without muting");
        d_.systemAudio.playSoundEffect("start");
    }
}

fs::path AudioRecordingService::freshTemporaryFile(const std::string& name) const {
    const auto path = d_.temporaryDirectory / name;
    std::error_code ec;
    if (fs::exists(path, ec) && !fs::remove(path, ec) && ec)
        log("⚠️ Could not remove existing temp file: ", ec.message());
    return path;
}

void AudioRecordingService::continueWithRecording() {
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)),
        " - continueWithRecording() - permissions granted");
    resetCaptureState();
    scheduleAbandonedRecordingTimeout();

    const auto ts = std::to_string(static_cast<long long>(std::floor(now(d_.mainQueue))));
    f_.audioFileURL = freshTemporaryFile("vocle_" + ts + ".wav");
    log("🗂️ Will write audio to: ", f_.audioFileURL->string());
    f_.pendingOutputURL = f_.audioFileURL;
    log("📌 Primed pendingOutputURL at start: ", f_.audioFileURL->string());

    if (!context_.mode || !context_.mode->recordSystemAudio) {
        log("🎙️ Selected capture path: Microphone");
        log("⏱️ Delaying microphone capture start by 0.2s to avoid reconfig race");
        d_.mainQueue.postAfter(kMicrophoneStartDelay,
                               token_.guard([this] { startMicrophoneUnlessCancelled(); }));
        return;
    }

    log("🎛️ Selected capture paths: Microphone + System Audio");
    f_.isSystemCapturePlanned = true;
    f_.micFileURL = freshTemporaryFile("vocle_mic_" + ts + ".wav");
    f_.systemFileURL = freshTemporaryFile("vocle_sys_" + ts + ".wav");
    f_.micRecordingURLOverride = f_.micFileURL;

    if (d_.screenCapture.preflightAccess()) {
        f_.didKickOffMicStart = true;
        isRecording.set(true);
        log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - recording started (isRecording = true)");
        playStartSoundByModeRule();
        log("⏱️ Parallel mic start after 0.1s (SC preflight granted)");
        d_.mainQueue.postAfter(kParallelMicrophoneStartDelay,
                               token_.guard([this] { startMicrophoneUnlessCancelled(); }));
        startSystemAudioCapture();
    } else {
        log("ℹ️ SC permission not granted yet; deferring start sound until SC starts");
        startSystemAudioCapture();
    }
}

void AudioRecordingService::resetCaptureState() {
    cancelLiveStream();
    levelTimer_.cancel();
    abandonedRecordingTimer_.cancel();
    activeRecordingTimer_.cancel();
    audioLevels.set({0, 0, 0});
    if (f_.pendingOutputURL) {
        log("🧽 Clearing stale pendingOutputURL: ", f_.pendingOutputURL->string());
        f_.pendingOutputURL.reset();
    }
    mic_.reset();
    audioRecorder_ = false;
    f_.micFileURL.reset();
    f_.systemFileURL.reset();
    f_.micRecordingURLOverride.reset();
    f_.isSystemCapturePlanned = false;
    f_.micFinished = false;
    f_.scFinished = false;
    f_.didKickOffMicStart = false;
    sys_.release();
}

// MARK: microphone

void AudioRecordingService::startMicrophoneCapture() {
    const auto target = f_.micRecordingURLOverride ? f_.micRecordingURLOverride : f_.audioFileURL;
    const bool started = mic_.start(
        target, [this](std::string message) { errorMessage.set(std::move(message)); },
        token_.guard([this](std::optional<Error> error) { micFileDidFinish(std::move(error)); }));
    if (!started) return;
    if (!f_.isSystemCapturePlanned) {
        startLiveStream();
        isRecording.set(true);
    }
    startLevelTimer();
}

void AudioRecordingService::startLiveStream() {
    cancelLiveStream();
    if (!d_.liveTranscriber || !context_.mode) return;
    auto stream = d_.liveTranscriber->openStream(
        *context_.mode, context_.vocabulary, context_.replacements,
        token_.guard([this](std::string partial) { partialText.set(std::move(partial)); }));
    if (!stream) return;
    // The tap runs on the capture thread: it converts and appends under the buffer's lock, and leaves
    // the main queue alone.
    auto resampler = std::make_shared<SpeechResampler>();
    auto scratch = std::make_shared<std::vector<int16_t>>();
    auto tapped = mic_.tapSamples([resampler, scratch, buffer = stream->buffer()](
                                      const float* samples, size_t frames, int channels, double rate) {
        scratch->clear();
        resampler->process(samples, frames, channels, rate, *scratch);
        buffer->append(scratch->data(), scratch->size());
    });
    if (!tapped) {
        log("Streaming transcription unavailable: the capture offers no samples");
        stream->cancel();
        return;
    }
    f_.liveStream = std::move(stream);
}

void AudioRecordingService::cancelLiveStream() {
    if (auto stream = std::exchange(f_.liveStream, nullptr)) stream->cancel();
}

void AudioRecordingService::startMicrophoneUnlessCancelled() {
    // A cancel inside the start delays must not bring the microphone up afterwards.
    if (f_.isCancelled) return log("🚫 Cancel flagged — not starting the microphone");
    startMicrophoneCapture();
}

void AudioRecordingService::micFileDidFinish(std::optional<Error> error) {
    if (f_.isCancelled) {
        log("🧹 Cancel in effect at fileOutput didFinish — skipping mix/process and cleaning up");
        mic_.stopSession(false);
        isRecording.set(false);
        mic_.release();
        f_.micFinished = false;
        f_.scFinished = false;
        return finisher_.endCleanup(true);
    }
    mic_.stopSession(true);
    isRecording.set(false);
    log("🧹 Cleaning up capture session properties for next recording (mic path).");
    mic_.release();
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
            errorMessage.set(
                "Vocle cannot capture the sound of other applications: the sound server offers no monitor of "
                "your output device.");
            return abortSystemAudioStart();
        }
        log("ℹ️ Screen Recording permission granted. A restart may be required for capture to work.");
    }

    if (!d_.screenCapture.isSupported()) {
        d_.mainQueue.post(token_.guard([this] {
            log("System audio capture requires macOS 13.0 or later. Falling back to microphone-only "
                "recording.");
            if (f_.isSystemCapturePlanned) fallBackToMicrophoneOnlySoon();
        }));
        return;
    }

    auto failed = token_.guard([this](const Error& error) { onSystemAudioStartFailed(error); });
    auto started = token_.guard([this](std::optional<Error> error) {
        if (f_.isCancelled) {
            log("🚫 Cancel flagged — stopping the system audio stream that started after the cancel");
            return sys_.dropLate();
        }
        if (error) return onSystemAudioStartFailed(*error);
        onSystemAudioStarted();
    });
    sys_.start(f_.systemFileURL ? *f_.systemFileURL : f_.audioFileURL.value_or(fs::path()),
               {[this] { return f_.isCancelled; }, failed, started});
}

void AudioRecordingService::onSystemAudioStarted() {
    log("✅ ScreenCaptureKit audio capture started");
    if (!isRecording.get()) isRecording.set(true);
    startLevelTimer();
    if (!f_.didKickOffMicStart) {
        playStartSoundByModeRule();
        log("⏱️ Mic start after SC by 0.15s (preflight not present)");
        d_.mainQueue.postAfter(kMicrophoneAfterSystemAudioDelay,
                               token_.guard([this] { startMicrophoneUnlessCancelled(); }));
    }
}

void AudioRecordingService::onSystemAudioStartFailed(const Error& error) {
    errorMessage.set("Failed to start system audio capture: " + error.description);
    log("System audio recording error (SC): ", error.description);
    abortSystemAudioStart();
    if (f_.isSystemCapturePlanned) {
        log("⏱️ SC permission denied or start failed; starting microphone-only in 0.2s…");
        fallBackToMicrophoneOnlySoon();
    }
}

void AudioRecordingService::abortSystemAudioStart() {
    d_.systemAudio.restoreSystemAudio();
    stopLevelTimer();
    isRecording.set(false);
    finisher_.endCleanup(true);
}

void AudioRecordingService::fallBackToMicrophoneOnlySoon() {
    d_.mainQueue.postAfter(kMicrophoneFallbackDelay, token_.guard([this] {
        if (f_.isCancelled) return;
        playStartSoundByModeRule();
        f_.micRecordingURLOverride = f_.audioFileURL;
        f_.isSystemCapturePlanned = false;
        startMicrophoneCapture();
    }));
}

// MARK: levels and timeouts

void AudioRecordingService::startLevelTimer() {
    if (levelTimer_.isActive()) return;
    log("Starting audio level timer");
    levelTimer_.startRepeating(d_.mainQueue, kLevelInterval, token_.guard([this] { updateAudioLevels(); }));
}

void AudioRecordingService::stopLevelTimer() {
    log("Stopping audio level timer");
    levelTimer_.cancel();
    audioLevels.set({0, 0, 0});
    if (isRecording.get()) isRecording.set(false);
}

void AudioRecordingService::updateAudioLevels() {
    if (!isRecording.get() || !levelTimer_.isActive()) return;
    // The recorder slot is always empty, so its average and peak stay at the floor.
    const auto reading = LevelMeter::combine(mic_.level(), sys_.level());
    d_.mainQueue.post(token_.guard([this, reading] { applyLevels(reading); }));
}

void AudioRecordingService::applyLevels(const LevelReading& reading) {
    f_.maxObservedDBFS = std::max(f_.maxObservedDBFS, LevelMeter::loudest(reading));
    if (!f_.hasExceededSpeechThreshold && f_.maxObservedDBFS >= kSpeechThreshold) {
        f_.hasExceededSpeechThreshold = true;
        log("📈 Speech threshold crossed (", numberText(f_.maxObservedDBFS),
            " dBFS >= -40.0). Starting active timeout and cancelling abandoned timeout.");
        abandonedRecordingTimer_.cancel();
        scheduleActiveRecordingTimeout();
    }
    // Each bar is its own change of the list: observers see three updates per tick.
    for (size_t bar = 0; bar < 3; ++bar) {
        auto bars = audioLevels.get();
        bars.resize(3);
        bars[bar] = LevelMeter::bar(reading.normalized, d_.random());
        audioLevels.set(bars);
    }
    d_.notifications.post(Notifications::audioLevelUpdate, this,
                          UserInfo{{"level", reading.level}, {"normalizedLevel", reading.normalized}});
}

void AudioRecordingService::scheduleAbandonedRecordingTimeout() {
    abandonedRecordingTimer_.cancel();
    log("⏲️ Scheduling abandoned-recording timeout in 60.0s");
    abandonedRecordingTimer_.start(d_.mainQueue, kAbandonedTimeout, token_.guard([this] {
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
    log("⏲️ Scheduling active-recording timeout in 600.0s");
    activeRecordingTimer_.start(d_.mainQueue, kActiveTimeout, token_.guard([this] {
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
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    log("TIMESTAMP: ", formatTimestamp(now(d_.mainQueue)), " - stopRecording() called");
    log("🛑 stopRecording debug: scStream exists? ", boolText(sys_.hasStream()));
    if (!f_.audioFileURL) return;

    abandonedRecordingTimer_.cancel();
    activeRecordingTimer_.cancel();

    // Without a start time the short rule does not apply.
    const Seconds elapsed = f_.recordingStartTime
                                ? d_.mainQueue.clock().monotonicNow() - *f_.recordingStartTime
                                : kShortRecordingLimit;
    if (elapsed < kShortRecordingLimit) {
        log("⏱️ Short recording (", numberText(elapsed.count()), "s < 0.4s) — treating as cancel");
        return cancelRecording();
    }
    if (f_.maxObservedDBFS < kSpeechThreshold) {
        log("🔇 Max observed dBFS (", numberText(f_.maxObservedDBFS),
            ") did not exceed threshold (-40.0) — treating as cancel");
        return cancelRecording();
    }

    if (!isProcessing.get()) isProcessing.set(true);
    f_.isCleanupInProgress = true;

    if (audioRecorder_) {
        log("⏹️ Stopping AVAudioRecorder…");
        audioRecorder_ = false;
    } else if (mic_.hasSession() && mic_.hasOutput()) {
        log("⏹️ Telling AVCaptureAudioFileOutput to stop recording...");
        mic_.stopOutput();
        if (sys_.hasStream()) {
            log("⏹️ Coordinated stop: also stopping ScreenCaptureKit stream…");
            stopSystemStream(StreamStop::coordinated);
        }
    } else if (sys_.hasStream()) {
        log("⏹️ Stopping ScreenCaptureKit stream…");
        stopSystemStream(StreamStop::streamOnly);
    }

    stopLevelTimer();
    if (!isProcessing.get()) isProcessing.set(true);
    d_.systemAudio.restoreSystemAudio();
    scheduleRouteRestore();
    f_.pendingOutputURL = f_.micRecordingURLOverride ? f_.micRecordingURLOverride : f_.audioFileURL;
    log("⏳ Waiting for AVCaptureFileOutput to finish writing file (mic)… pendingOutputURL=",
        f_.pendingOutputURL ? f_.pendingOutputURL->string() : std::string("nil"));
}

void AudioRecordingService::stopSystemStream(StreamStop kind) {
    sys_.stop(token_.guard([this, kind](std::optional<Error> error) {
        if (kind == StreamStop::streamOnly) {
            if (error) {
                errorMessage.set("Failed to stop ScreenCaptureKit capture: " + error->description);
                return finisher_.endCleanup(false);
            }
            f_.scFinished = true;
            return maybeMixAndProcess();
        }
        const bool coordinated = kind == StreamStop::coordinated;
        if (error) {
            log(coordinated ? "❌ SC stop error (coordinated): " : "❌ SC stop error during cancel: ",
                error->description);
        } else if (coordinated) {
            log("✅ SC stream stopped (coordinated)");
        }
        sys_.release();
        f_.scFinished = true;
        maybeMixAndProcess();
    }));
}

void AudioRecordingService::scheduleRouteRestore() {
    d_.mainQueue.postAfter(kRouteRestoreDelay,
                           token_.guard([this] { d_.routeManager.restoreOutputIfNeeded(); }));
}

void AudioRecordingService::cancelRecording() {
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    log("❌ cancelRecording() called. isRecording=", boolText(isRecording.get()));
    f_.isCancelled = true;
    f_.isCleanupInProgress = true;
    cancelLiveStream();
    abandonedRecordingTimer_.cancel();
    activeRecordingTimer_.cancel();
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
    if (mic_.hasOutput()) {
        log("⏹️ (Cancel) Stopping AVCaptureAudioFileOutput…");
        mic_.stopOutput();
    }
    if (sys_.hasStream()) {
        log("⏹️ (Cancel) Stopping ScreenCaptureKit stream…");
        stopSystemStream(StreamStop::duringCancel);
    } else {
        maybeMixAndProcess();
    }
}

void AudioRecordingService::maybeMixAndProcess() {
    finisher_.maybeMixAndProcess(sys_.openFile(), sys_.hasStream());
}

void AudioRecordingService::audioRecorderDidFinishRecording(bool successfully) {
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    if (successfully) return;
    isRecording.set(false);
    isProcessing.set(false);
    errorMessage.set("Recording failed");
}

void AudioRecordingService::audioRecorderEncodeErrorDidOccur(const Error& error) {
    VOCLE_ASSERT_MAIN_QUEUE(d_.mainQueue);
    isRecording.set(false);
    isProcessing.set(false);
    errorMessage.set("Recording error: " + error.description);
}

}  // namespace vocle
