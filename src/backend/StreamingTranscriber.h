#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "backend/StreamingUploader.h"
#include "core/LiveTranscription.h"

namespace vocle {

// Makes a StreamingUploader per dictation and keeps it until it has settled (a cancel's DELETE
// included), so the engine may drop its reference as soon as the recording is handed over. Main queue.
class StreamingTranscriber final : public LiveTranscriber {
  public:
    StreamingTranscriber(MainQueue& mainQueue, BackendService& backend, RecordingProcessor& fallback)
        : mainQueue_(mainQueue), backend_(backend), fallback_(fallback) {}

    // Off: every dictation takes the road of the whole file.
    void setEnabled(bool enabled) { enabled_ = enabled; }
    bool isEnabled() const { return enabled_; }

    std::shared_ptr<LiveAudioStream> openStream(const Mode& mode, const std::string& vocabWords,
                                                const std::vector<Replacement>& replacements,
                                                std::function<void(std::string)> onPartial) override;

    // Streams not yet settled.
    size_t activeStreams() const { return streams_.size(); }

  private:
    MainQueue& mainQueue_;
    BackendService& backend_;
    RecordingProcessor& fallback_;
    bool enabled_ = true;
    std::map<uint64_t, std::shared_ptr<StreamingUploader>> streams_;
    uint64_t nextId_ = 0;
    OwnerToken owner_;
};

}  // namespace vocle
