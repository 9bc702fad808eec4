#include "recording/SystemAudioController.h"

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "recording/NumberText.h"
#include "recording/SoundEffectLocator.h"

namespace vocle {

// Touched only on the background queue.
struct SystemAudioController::VolumeState {
    float originalSystemVolume = 0.0f;
    bool didMuteSystemAudio = false;
};

SystemAudioController::SystemAudioController(MainQueue& mainQueue, DispatchQueue& backgroundQueue,
                                             CoreAudio& coreAudio, AudioPlayback& playback,
                                             const FileStorageManager& storage,
                                             std::vector<std::filesystem::path> soundDirectories)
    : mainQueue_(mainQueue),
      backgroundQueue_(backgroundQueue),
      coreAudio_(coreAudio),
      playback_(playback),
      storage_(storage),
      soundDirectories_(std::move(soundDirectories)),
      volume_(std::make_shared<VolumeState>()) {}

SystemAudioController::~SystemAudioController() {
    if (soundEffectPlayer_) soundEffectPlayer_->stop();
}

void SystemAudioController::playSoundEffect(const std::string& name, std::function<void()> completion) {
    const auto settings = storage_.loadSettings();
    if (!settings.enableSoundEffects) {
        log("🔇 Sound effects disabled in settings");
        if (completion) completion();
        return;
    }
    const auto file = findSoundFile(name, soundDirectories_);
    if (!file) {
        log("❌ Sound file not found: ", name);
        if (completion) completion();
        return;
    }
    if (soundEffectPlayer_) {
        // A sound still playing is cut off; its completion is dropped below without running.
        soundEffectPlayer_->stop();
        soundEffectPlayer_.reset();
        playing_ = false;
    }
    auto made = playback_.makePlayer(*file);
    if (!made.ok()) {
        log("❌ Could not play sound effect: ", made.error().description);
        if (completion) completion();
        return;
    }
    soundEffectPlayer_ = made.value();
    const uint64_t generation = ++generation_;
    playingGeneration_->store(generation);
    soundEffectPlayer_->setVolume(static_cast<float>(settings.soundVolume));
    auto onMain = bindToMain(mainQueue_, token_, [this, generation] { soundFinished(generation); });
    std::weak_ptr<std::atomic<uint64_t>> playingGeneration = playingGeneration_;
    std::atomic<bool>* playing = &playing_;
    playing_ = true;
    const bool started = soundEffectPlayer_->play([onMain, playingGeneration, playing, generation] {
        // Lift the capture silence as soon as the sound ends, not one main-queue hop later.
        if (auto g = playingGeneration.lock(); g && g->load() == generation) *playing = false;
        onMain();
    });
    if (!started) playing_ = false;
    soundCompletion_ = std::move(completion);
    log("🔊 Playing sound effect: ", name, " at volume: ", numberText(settings.soundVolume));
}

void SystemAudioController::soundFinished(uint64_t generation) {
    if (generation != generation_) return;
    playing_ = false;
    if (auto completion = std::exchange(soundCompletion_, nullptr)) completion();
    soundEffectPlayer_.reset();
}

void SystemAudioController::playStartSoundThenMute() {
    log("🔇 Playing start sound then muting audio");
    playSoundEffect("start");
    // The start sound is not awaited; 0.3 s is enough for it to be heard before the output goes quiet.
    mainQueue_.postAfter(kMuteDelay, token_.guard([this] {
        backgroundQueue_.async([core = &coreAudio_, state = volume_] { muteSystemAudio(*core, *state); });
    }));
}

void SystemAudioController::restoreSystemAudio() {
    log("🔊 Dispatching audio restore to background queue");
    backgroundQueue_.async([core = &coreAudio_, state = volume_] { unmuteSystemAudio(*core, *state); });
}

void SystemAudioController::muteSystemAudio(CoreAudio& coreAudio, VolumeState& state) {
    auto device = coreAudio.defaultDevice(AudioScope::output);
    if (!device.ok()) {
        log("❌ Failed to get default output device");
        return;
    }
    auto current = coreAudio.volume(device.value());
    if (!current.ok()) {
        log("❌ Failed to get current volume");
        return;
    }
    state.originalSystemVolume = current.value();
    log("🔊 Current system volume: ", numberText(current.value()));
    if (coreAudio.setVolume(device.value(), 0.0f)) {
        log("❌ Failed to mute system audio");
        return;
    }
    state.didMuteSystemAudio = true;
    log("🔇 System audio muted successfully");
}

void SystemAudioController::unmuteSystemAudio(CoreAudio& coreAudio, VolumeState& state) {
    if (!state.didMuteSystemAudio) return;
    // The device current now, which may not be the one that was muted.
    auto device = coreAudio.defaultDevice(AudioScope::output);
    if (!device.ok()) {
        log("❌ Failed to get default output device for unmuting");
        return;
    }
    if (coreAudio.setVolume(device.value(), state.originalSystemVolume)) {
        log("❌ Failed to restore system audio");
        return;
    }
    state.didMuteSystemAudio = false;
    log("🔊 System audio restored to volume: ", numberText(state.originalSystemVolume));
}

}  // namespace vocle
