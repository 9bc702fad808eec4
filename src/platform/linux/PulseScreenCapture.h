#pragma once

#include "platform/linux/PulseConnection.h"
#include "platform/screen_capture.h"

namespace vocle {

// System-audio capture on PulseAudio: a record stream on the default output's monitor. There is no
// permission to ask for on Linux. Completions arrive on the PulseAudio loop thread or, for set-up
// errors, on the calling thread.
class PulseScreenCapture final : public ScreenCapture {
  public:
    explicit PulseScreenCapture(PulseConnection& connection) : pulse_(connection) {}

    bool preflightAccess() const override { return true; }
    bool requestAccess() override { return true; }
    bool isSupported() const override { return true; }
    void makeStream(std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) override;

  private:
    PulseConnection& pulse_;
};

}  // namespace vocle
