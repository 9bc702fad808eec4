#include "recording/RecordingFinisher.h"

#include <system_error>

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "recording/AudioMixer.h"

namespace vocle {

namespace fs = std::filesystem;

RecordingFinisher::RecordingFinisher(MainQueue& mainQueue, RecordingProcessor& processor,
                                     TranscriptPaster& paster, RecordingFlags& flags,
                                     const RecordingContext& context, RecordingOutputs outputs)
    : mainQueue_(mainQueue),
      processor_(processor),
      paster_(paster),
      f_(flags),
      context_(context),
      out_(outputs) {}

void RecordingFinisher::endCleanup(bool dropPendingOutput) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (dropPendingOutput) f_.pendingOutputURL.reset();
    out_.isProcessing.set(false);
    f_.isCleanupInProgress = false;
}

void RecordingFinisher::maybeMixAndProcess(const std::optional<fs::path>& openSystemFile,
                                           bool systemStreamPresent) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (f_.isCancelled) {
        log("🚫 Cancel flagged — skipping processing and cleaning up");
        return endCleanup(true);
    }
    if (!f_.isSystemCapturePlanned) {
        if (f_.pendingOutputURL) {
            log("▶️ Proceeding to process mic-only file: ", f_.pendingOutputURL->string());
            out_.isProcessing.set(true);
            processRecording(*f_.pendingOutputURL);
            f_.isCleanupInProgress = false;
        }
        return;
    }
    log("🧮 maybeMixAndProcess() called. Flags: micFinished=", boolText(f_.micFinished),
        ", scFinished=", boolText(f_.scFinished),
        ", isSystemCapturePlanned=", boolText(f_.isSystemCapturePlanned));
    const bool scDone = f_.scFinished || (openSystemFile && !systemStreamPresent);
    if (!f_.micFinished || !scDone) {
        log("⏳ Waiting for both sources: micDone=", boolText(f_.micFinished), ", scDone=", boolText(scDone));
        return;
    }
    if (!f_.audioFileURL) {
        log("⚠️ No final audioFileURL to write mixed output");
        return endCleanup(false);
    }
    std::error_code ec;
    // The single-source fallbacks below leave the clean-up flag set on purpose: the next start is
    // refused until a cancel clears it.
    if (!f_.micFileURL || !fs::exists(*f_.micFileURL, ec)) return finalizeWithSingle(openSystemFile);
    std::optional<fs::path> systemFile = f_.systemFileURL ? f_.systemFileURL : openSystemFile;
    if (!systemFile || !fs::exists(*systemFile, ec)) return finalizeWithSingle(f_.micFileURL);
    log("🔀 Mixing mic + system into: ", f_.audioFileURL->string());
    if (auto error = mixAudioFiles(*f_.micFileURL, *systemFile, *f_.audioFileURL)) {
        log("❌ Mix failed: ", error->description, ". Falling back to mic only.");
        finalizeWithSingle(f_.micFileURL);
        f_.isCleanupInProgress = false;
        return;
    }
    out_.isProcessing.set(true);
    processRecording(*f_.audioFileURL);
    f_.isCleanupInProgress = false;
}

void RecordingFinisher::finalizeWithSingle(std::optional<fs::path> url) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at finalizeWithSingle — aborting");
        endCleanup(false);
    } else if (!url) {
        out_.isProcessing.set(false);
    } else {
        log("▶️ Proceeding with single-source file: ", url->string());
        out_.isProcessing.set(true);
        processRecording(*url);
    }
}

std::optional<Error> RecordingFinisher::mixAudioFiles(const fs::path& mic, const fs::path& system,
                                                      const fs::path& output) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at mixAudioFiles — aborting mix");
        return Error{"Vocle.Cancelled", -9999, "Cancelled"};
    }
    return AudioMixer::mix(mic, system, output);
}

void RecordingFinisher::processRecording(const fs::path& url) {
    if (f_.isCancelled) {
        log("🚫 Cancel flagged at processRecording — aborting processing");
        return endCleanup(false);
    }
    if (!context_.mode) {
        out_.isProcessing.set(false);
        out_.errorMessage.set("No mode selected");
        return;
    }
    auto stamp = [this] { return formatTimestamp(mainQueue_.clock().now()); };
    log("TIMESTAMP: ", stamp(), " - starting audio processing");
    auto onMain = bindToMain(mainQueue_, token_, [this, stamp](Result<std::string> result) {
        out_.isProcessing.set(false);
        if (!result.ok()) {
            log("TIMESTAMP: ", stamp(), " - transcription failed: ", result.error().description);
            out_.errorMessage.set(result.error().description);
            return;
        }
        log("TIMESTAMP: ", stamp(), " - transcription successful, starting clipboard operations");
        out_.processedText.set(result.value());
        paster_.copyAndPaste(result.value());
        log("TIMESTAMP: ", stamp(), " - dictation flow complete");
    });
    if (auto stream = std::exchange(f_.liveStream, nullptr)) return stream->finish(url, onMain);
    processor_.processRecording(url, *context_.mode, context_.vocabulary, context_.replacements, onMain);
}

}  // namespace vocle
