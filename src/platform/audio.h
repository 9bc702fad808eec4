#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "foundation/Error.h"

namespace vocle {

// One loaded sound, played once.
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;
    virtual void setVolume(float volume) = 0;  // 0…1
    // `finished` is called once the sound has played to its end, on a platform thread; never after
    // stop() or destruction.
    virtual bool play(std::function<void()> finished) = 0;
    virtual void stop() = 0;
};

// Sound playback (on Linux: a PulseAudio playback stream on the default sink).
class AudioPlayback {
public:
    virtual ~AudioPlayback() = default;
    // An error when the file cannot be read.
    virtual Result<std::shared_ptr<SoundPlayer>> makePlayer(const std::filesystem::path& file) = 0;
};

}  // namespace vocle
