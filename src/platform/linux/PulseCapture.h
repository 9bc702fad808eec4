#pragma once

#include <memory>

#include "foundation/MainQueue.h"
#include "platform/capture.h"
#include "platform/linux/PulseConnection.h"

namespace vocle {

// Microphone capture on PulseAudio: a record stream on the chosen source, written to a 16-bit WAV
// file by libsndfile. Device uids are source names; monitors of outputs are not offered as inputs.
// The access answer and the did-finish callback are posted to the main queue.
class PulseCapture final : public Capture {
  public:
    PulseCapture(PulseConnection& connection, MainQueue& mainQueue)
        : pulse_(connection), mainQueue_(mainQueue) {}

    // Linux has no per-application microphone permission.
    MicrophoneAuthorization authorizationStatus() const override {
        return MicrophoneAuthorization::authorized;
    }
    void requestAccess(std::function<void(bool)> completion) override {
        mainQueue_.post([completion = std::move(completion)] { completion(true); });
    }

    InputAvailability inputAvailability() const override;

    std::optional<CaptureDevice> device(const std::string& uid) const override;
    std::optional<CaptureDevice> defaultDevice() const override;
    std::vector<CaptureDevice> devices() const override;

    std::shared_ptr<CaptureSession> makeSession() override;
    std::shared_ptr<CaptureFileOutput> makeFileOutput() override;

  private:
    PulseConnection& pulse_;
    MainQueue& mainQueue_;
};

}  // namespace vocle
