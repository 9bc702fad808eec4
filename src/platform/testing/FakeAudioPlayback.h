#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/audio.h"

namespace vocle::testing {

class FakeSoundPlayer final : public SoundPlayer {
  public:
    std::filesystem::path file;
    float volume = 1.0f;
    bool playing = false;
    bool stopped = false;

    void setVolume(float v) override { volume = v; }
    bool play(std::function<void()> finished) override {
        playing = true;
        finished_ = std::move(finished);
        return true;
    }
    void stop() override {
        stopped = true;
        playing = false;
        finished_ = nullptr;
    }
    // The sound reaches its end.
    void finish() {
        playing = false;
        if (auto f = std::exchange(finished_, nullptr)) f();
    }

  private:
    std::function<void()> finished_;
};

class FakeAudioPlayback final : public AudioPlayback {
  public:
    std::optional<Error> makeError;
    std::vector<std::shared_ptr<FakeSoundPlayer>> players;

    Result<std::shared_ptr<SoundPlayer>> makePlayer(const std::filesystem::path& file) override {
        if (makeError) return *makeError;
        auto p = std::make_shared<FakeSoundPlayer>();
        p->file = file;
        players.push_back(p);
        return std::shared_ptr<SoundPlayer>(p);
    }
};

}  // namespace vocle::testing
