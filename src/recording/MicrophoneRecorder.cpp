#include "recording/MicrophoneRecorder.h"

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "recording/BluetoothAudioRouteManager.h"
#include "recording/LevelMeter.h"
#include "recording/NumberText.h"
#include "storage/FileStorageManager.h"

namespace vocle {

namespace fs = std::filesystem;

MicrophoneRecorder::MicrophoneRecorder(MainQueue& mainQueue, Capture& capture,
                                       BluetoothAudioRouteManager& routeManager,
                                       const FileStorageManager& storage)
    : mainQueue_(mainQueue), capture_(capture), routeManager_(routeManager), storage_(storage) {}

MicrophoneRecorder::~MicrophoneRecorder() = default;

bool MicrophoneRecorder::start(std::optional<fs::path> target, std::function<void(std::string)> reportError,
                               FileFinished finished) {
    log("🎙️ Setting up AVCaptureSession for microphone recording…");
    routeManager_.snapshotDefaultOutput();

    auto session = capture_.makeSession();
    auto output = capture_.makeFileOutput();
    if (!session || !output) {
        reportError("Failed to create capture session");
        log("❌ Failed to create capture session or audio output");
        return false;
    }
    session_ = session;
    output_ = output;
    finished_ = std::move(finished);

    const auto settings = storage_.loadSettings();
    std::optional<CaptureDevice> wanted;
    if (!settings.useSystemDefaultAudio && settings.inputDeviceUID && !settings.inputDeviceUID->empty()) {
        wanted = capture_.device(*settings.inputDeviceUID);
    } else {
        wanted = capture_.defaultDevice();
    }

    auto addInput = [&](const CaptureDevice& device, const char* added, const char* refused) {
        if (auto error = session->createInput(device)) {
            reportError("Failed to configure audio input: " + error->description);
            log("Audio input error: ", error->description);
            return false;
        }
        log(session->addInput() ? added : refused);
        return true;
    };
    if (wanted) {
        log("🔧 Adding audio input: ", wanted->name, " [UID=", wanted->uid, "]");
        if (!addInput(*wanted, "✅ Added audio input", "⚠️ Cannot add audio input to session"))
            return false;
    } else if (auto fallback = capture_.defaultDevice()) {
        log("🔧 Adding default audio input: ", fallback->name);
        if (!addInput(*fallback, "✅ Added default audio input",
                      "⚠️ Cannot add default audio input to session"))
            return false;
    } else {
        // The session still starts without an input, as on any refused input; the user learns why
        // nothing is heard.
        reportError(kNoMicrophoneMessage);
        log("⚠️ No audio input device available");
    }

    log(session->addOutput(output) ? "✅ Added AVCaptureAudioFileOutput"
                                   : "⚠️ Cannot add AVCaptureAudioFileOutput to session");
    log("▶️ Starting capture session…");
    session->startRunning();
    log("✅ Capture session started");

    if (target) {
        log("⏱️ Delaying file output start by 0.12s to let connections stabilize (mic)");
        mainQueue_.postAfter(kOutputStartDelay, token_.guard([this, url = *target] {
            if (output_) startWhenReady(output_, url, kReadyAttempts);
        }));
    }
    log("🎙️ Microphone recording started via AVCaptureSession (selected device: ",
        wanted ? wanted->name : std::string("Default"), ")");
    return true;
}

void MicrophoneRecorder::startWhenReady(std::shared_ptr<CaptureFileOutput> output, fs::path url,
                                        int attemptsLeft) {
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
    if (ready) return startFile(output, url, false);
    if (attemptsLeft < 1) {
        log("⚠️ Channels not ready after waiting; starting output anyway as fallback");
        return startFile(output, url, true);
    }
    log("⏳ Waiting for audio channels to become ready… attemptsLeft=", attemptsLeft);
    mainQueue_.postAfter(kReadyInterval, token_.guard([this, url, attemptsLeft] {
        // Each retry uses the current output; a stop or cancel that dropped it ends the chain.
        if (output_) startWhenReady(output_, url, attemptsLeft - 1);
    }));
}

void MicrophoneRecorder::startFile(const std::shared_ptr<CaptureFileOutput>& output, const fs::path& url,
                                   bool fallback) {
    if (!fallback)
        log("⏺️ Starting audio file output to: ", url.string(), " [type: .wav] (channels ready)");
    output->startRecording(url, bindToMain(mainQueue_, token_, finished_));
    log(fallback ? "🔎 audioOutput.isRecording after fallback start: "
                 : "🔎 audioOutput.isRecording after start: ",
        boolText(output->isRecording()));
    mainQueue_.postAfter(kOutputCheckDelay, token_.guard([output, fallback] {
        log(fallback ? "🔎 audioOutput.isRecording after 300ms (fallback): "
                     : "🔎 audioOutput.isRecording after 300ms: ",
            boolText(output->isRecording()));
    }));
}

bool MicrophoneRecorder::tapSamples(CaptureFileOutput::SampleTap tap) {
    return output_ && output_->setSampleTap(std::move(tap));
}

void MicrophoneRecorder::stopOutput() {
    if (output_) output_->stopRecording();
}

void MicrophoneRecorder::stopSession(bool announce) {
    if (!session_) return;
    if (announce) {
        log("✅ File writing finished (mic). Stopping capture session.");
        session_->stopRunning();
    } else if (session_->isRunning()) {
        session_->stopRunning();
    }
}

void MicrophoneRecorder::release() {
    session_.reset();
    output_.reset();
}

void MicrophoneRecorder::reset() {
    if (output_ && output_->isRecording()) {
        log("⚠️ audioOutput was still recording at preflight. Stopping.");
        output_->stopRecording();
    }
    if (session_) {
        session_->removeAll();
        if (session_->isRunning()) {
            log("⚠️ captureSession was still running at preflight. Stopping.");
            session_->stopRunning();
        }
    }
    release();
}

std::optional<float> MicrophoneRecorder::level() const {
    if (!output_ || !session_ || !session_->isRunning()) return std::nullopt;
    return LevelMeter::microphoneLevel(output_->connections());
}

}  // namespace vocle
