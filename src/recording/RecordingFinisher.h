#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "recording/RecordingFlags.h"
#include "core/RecordingProcessor.h"
#include "recording/TranscriptPaster.h"

namespace vocle {

// The engine's published state that the end of a recording writes.
struct RecordingOutputs {
    Observable<bool>& isProcessing;
    Observable<std::string>& processedText;
    Observable<std::optional<std::string>>& errorMessage;
};

// The end of a recording: waits until every planned source is done, mixes microphone and system audio
// when both files exist (or falls back to the one that does), hands the file to the upload pipeline and
// pastes the result. Works on the engine's flags. Main queue only.
class RecordingFinisher {
  public:
    RecordingFinisher(MainQueue& mainQueue, RecordingProcessor& processor, TranscriptPaster& paster,
                      RecordingFlags& flags, const RecordingContext& context, RecordingOutputs outputs);

    // `openSystemFile` is the system-audio file while its writer holds it open; `systemStreamPresent`
    // whether the stream still exists.
    void maybeMixAndProcess(const std::optional<std::filesystem::path>& openSystemFile,
                            bool systemStreamPresent);
    // The one exit of every abandoned or finished clean-up: processing ends and the next start is allowed.
    void endCleanup(bool dropPendingOutput);

  private:
    void finalizeWithSingle(std::optional<std::filesystem::path> url);
    std::optional<Error> mixAudioFiles(const std::filesystem::path& mic, const std::filesystem::path& system,
                                       const std::filesystem::path& output);
    void processRecording(const std::filesystem::path& url);

    MainQueue& mainQueue_;
    RecordingProcessor& processor_;
    TranscriptPaster& paster_;
    RecordingFlags& f_;
    const RecordingContext& context_;
    RecordingOutputs out_;
    OwnerToken token_;
};

}  // namespace vocle
