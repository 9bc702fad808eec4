#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/capture.h"

namespace vocle::testing {

// A file output whose channels appear on the Nth readiness check and whose did-finish callback
// can be delivered at stop (the default) or held back for the test.
class FakeCaptureFileOutput final : public CaptureFileOutput {
  public:
    // 1 = channels on the first look; 0 = never. The level meter looks too, so timing tests use `ready`.
    int channelsReadyOnCheck = 1;
    std::function<bool()> ready;
    bool connectionEnabled = true;
    std::vector<float> channelPowerDb{-60.0f};
    // What stopRecording() does: write `fileFrames` of `fileSample` (mono, `fileRate` Hz) and report.
    bool finishOnStop = true;
    bool writeFileOnStop = true;
    size_t fileFrames = 16000;
    int fileRate = 16000;
    float fileSample = 0.25f;
    std::optional<Error> finishError;

    mutable int checks = 0;
    int startCount = 0;
    int stopCount = 0;
    std::optional<std::filesystem::path> recordingTo;

    std::vector<CaptureConnection> connections() const override;
    void startRecording(const std::filesystem::path& file, DidFinish didFinish) override;
    bool isRecording() const override { return recording_; }
    void stopRecording() override;
    // Whether setSampleTap is honoured, as the PulseAudio output does.
    bool offersSamples = true;
    bool setSampleTap(SampleTap t) override {
        if (offersSamples) tap = std::move(t);
        return offersSamples;
    }
    // Hands a block to the tap as the capture thread would, while the file is being written (any thread).
    void feed(const std::vector<float>& interleaved, int channels, double rate);
    SampleTap tap;
    // Delivers a held-back did-finish callback.
    void finish(std::optional<Error> error = std::nullopt);
    bool hasPendingFinish() const { return static_cast<bool>(didFinish_); }

  private:
    bool recording_ = false;
    DidFinish didFinish_;
};

class FakeCaptureSession final : public CaptureSession {
  public:
    std::optional<Error> inputError;
    bool acceptInput = true;
    bool acceptOutput = true;

    std::optional<CaptureDevice> input;
    bool inputAdded = false;
    std::shared_ptr<CaptureFileOutput> output;
    int removeAllCount = 0;
    int stopCount = 0;

    std::optional<Error> createInput(const CaptureDevice& device) override;
    bool addInput() override;
    bool addOutput(std::shared_ptr<CaptureFileOutput> out) override;
    void removeAll() override;
    void startRunning() override { running_ = true; }
    void stopRunning() override {
        ++stopCount;
        running_ = false;
    }
    bool isRunning() const override { return running_; }

  private:
    bool running_ = false;
};

class FakeCapture final : public Capture {
  public:
    MicrophoneAuthorization authorization = MicrophoneAuthorization::authorized;
    // When set, requestAccess answers at once; otherwise the answer waits for answerAccess().
    std::optional<bool> accessAnswer;
    std::vector<CaptureDevice> deviceList{{"alsa_input.usb-mic", "USB Microphone"}};
    std::optional<std::string> defaultUid = std::string("alsa_input.usb-mic");
    bool failSessions = false;
    // False: no sound server answers (the device list is then ignored).
    bool soundServer = true;
    // Applied to every new session and output.
    std::function<void(FakeCaptureSession&)> configureSession;
    std::function<void(FakeCaptureFileOutput&)> configureOutput;

    std::vector<std::shared_ptr<FakeCaptureSession>> sessions;
    std::vector<std::shared_ptr<FakeCaptureFileOutput>> outputs;
    int accessRequests = 0;

    MicrophoneAuthorization authorizationStatus() const override { return authorization; }
    InputAvailability inputAvailability() const override {
        if (!soundServer) return InputAvailability::noSoundServer;
        return deviceList.empty() ? InputAvailability::noInputDevice : InputAvailability::available;
    }
    void requestAccess(std::function<void(bool)> completion) override;
    void answerAccess(bool granted);
    std::optional<CaptureDevice> device(const std::string& uid) const override;
    std::optional<CaptureDevice> defaultDevice() const override;
    std::vector<CaptureDevice> devices() const override {
        return soundServer ? deviceList : std::vector<CaptureDevice>{};
    }
    std::shared_ptr<CaptureSession> makeSession() override;
    std::shared_ptr<CaptureFileOutput> makeFileOutput() override;

    FakeCaptureSession& lastSession() { return *sessions.back(); }
    FakeCaptureFileOutput& lastOutput() { return *outputs.back(); }

  private:
    std::function<void(bool)> pendingAccess_;
};

}  // namespace vocle::testing
