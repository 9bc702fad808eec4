#pragma once

#include "foundation/MainQueue.h"
#include "platform/linux/PulseConnection.h"
#include "platform/screen_capture.h"

namespace vocle {

// System-audio capture on PulseAudio: a record stream on the default output's monitor. There is no
// permission to ask for on Linux. Completions, set-up errors included, are posted to the main queue.
class PulseScreenCapture final : public ScreenCapture {
  public:
    PulseScreenCapture(PulseConnection& connection, MainQueue& mainQueue)
        : pulse_(connection), mainQueue_(mainQueue) {}

    bool preflightAccess() const override { return true; }
    bool requestAccess() override { return true; }
    bool isSupported() const override { return true; }
    void makeStream(std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) override;

  private:
    PulseConnection& pulse_;
    MainQueue& mainQueue_;
};

}  // namespace vocle
