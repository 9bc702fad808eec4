#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "platform/audio.h"
#include "platform/core_audio.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// Plays the start and stop sounds and silences the default output while a muting mode records.
// Sounds are played on the main queue; mute and unmute run on the background queue.
class SystemAudioController {
  public:
    SystemAudioController(MainQueue& mainQueue, DispatchQueue& backgroundQueue, CoreAudio& coreAudio,
                          AudioPlayback& playback, const FileStorageManager& storage,
                          std::vector<std::filesystem::path> soundDirectories);
    ~SystemAudioController();

    // The completion runs once the sound has finished, or at once when nothing can be played.
    void playSoundEffect(const std::string& name, std::function<void()> completion = {});
    void playStartSoundThenMute();
    void restoreSystemAudio();

    // True while one of our sounds plays; the system-audio capture writes silence meanwhile, because a
    // monitor cannot leave our own output out. Safe from any thread.
    bool isPlayingSoundEffect() const { return playing_.load(); }

    static constexpr Seconds kMuteDelay{0.3};

  private:
    struct VolumeState;
    // Run on the background queue; they hold the volume state, not the controller, so work still
    // queued when the controller goes away stays safe.
    static void muteSystemAudio(CoreAudio& coreAudio, VolumeState& state);
    static void unmuteSystemAudio(CoreAudio& coreAudio, VolumeState& state);
    void soundFinished(uint64_t generation);

    MainQueue& mainQueue_;
    DispatchQueue& backgroundQueue_;
    CoreAudio& coreAudio_;
    AudioPlayback& playback_;
    const FileStorageManager& storage_;
    std::vector<std::filesystem::path> soundDirectories_;

    std::shared_ptr<VolumeState> volume_;

    std::shared_ptr<SoundPlayer> soundEffectPlayer_;
    std::function<void()> soundCompletion_;
    uint64_t generation_ = 0;
    std::shared_ptr<std::atomic<uint64_t>> playingGeneration_ = std::make_shared<std::atomic<uint64_t>>(0);
    std::atomic<bool> playing_{false};
    OwnerToken token_;
};

}  // namespace vocle
