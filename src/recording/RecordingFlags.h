#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "foundation/Clock.h"

#include "core/LiveTranscription.h"
#include "core/Mode.h"
#include "core/Replacement.h"

namespace vocle {

// The life cycle of one recording, as flags the engine and its finisher set and read.
struct RecordingFlags {
    std::optional<std::filesystem::path> audioFileURL;
    std::optional<std::filesystem::path> micFileURL;
    std::optional<std::filesystem::path> systemFileURL;
    std::optional<std::filesystem::path> micRecordingURLOverride;
    std::optional<std::filesystem::path> pendingOutputURL;
    bool isSystemCapturePlanned = false;
    bool micFinished = false;
    bool scFinished = false;
    bool didKickOffMicStart = false;
    bool isCancelled = false;
    bool isCleanupInProgress = false;
    std::optional<MonotonicTime> recordingStartTime;
    float maxObservedDBFS = -60.0f;
    bool hasExceededSpeechThreshold = false;
    // The microphone-only recording streamed as it is captured; taken by whoever finishes or cancels.
    std::shared_ptr<LiveAudioStream> liveStream;
};

// What the next recording is processed with.
struct RecordingContext {
    std::optional<Mode> mode;
    std::string vocabulary;
    std::vector<Replacement> replacements;
};

}  // namespace vocle
