#pragma once

#include "platform/audio.h"
#include "platform/linux/PulseConnection.h"

namespace vocle {

// Short sounds on the default output: the file is read whole with libsndfile (sound effects are a
// fraction of a second) and played through one playback stream at the player's volume. `finished`
// is called on the PulseAudio loop thread once the stream has drained.
class PulseAudioPlayback final : public AudioPlayback {
  public:
    explicit PulseAudioPlayback(PulseConnection& connection) : pulse_(connection) {}
    Result<std::shared_ptr<SoundPlayer>> makePlayer(const std::filesystem::path& file) override;

  private:
    PulseConnection& pulse_;
};

}  // namespace vocle
