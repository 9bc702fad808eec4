#pragma once

#include <memory>

#include "platform/capture.h"
#include "platform/linux/PulseConnection.h"

namespace vocle {

// Microphone capture on PulseAudio: a record stream on the chosen source, written to a 16-bit WAV
// file by libsndfile. Device uids are source names; monitors of outputs are not offered as inputs.
// The did-finish callback is called on the thread that stops the output (or on the PulseAudio loop
// thread when the file cannot be written).
class PulseCapture final : public Capture {
  public:
    explicit PulseCapture(PulseConnection& connection) : pulse_(connection) {}

    // Linux has no per-application microphone permission.
    MicrophoneAuthorization authorizationStatus() const override {
        return MicrophoneAuthorization::authorized;
    }
    void requestAccess(std::function<void(bool)> completion) override { completion(true); }

    std::optional<CaptureDevice> device(const std::string& uid) const override;
    std::optional<CaptureDevice> defaultDevice() const override;
    std::vector<CaptureDevice> devices() const override;

    std::shared_ptr<CaptureSession> makeSession() override;
    std::shared_ptr<CaptureFileOutput> makeFileOutput() override;

  private:
    PulseConnection& pulse_;
};

}  // namespace vocle
