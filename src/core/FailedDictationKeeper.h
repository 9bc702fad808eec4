#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Uuid.h"

namespace vocle {

// A recording the backend could not transcribe, with what was sent along with it.
struct FailedDictation {
    std::filesystem::path audioFile;  // the bytes that were sent (compressed, else the WAV)
    Mode mode;
    std::string vocabWords;
    std::vector<Replacement> replacements;
    double recordedAt = 0;  // seconds since 1970
    std::string error;      // as the user is told it
};

// Where the upload pipeline hands a failed dictation so nothing said is lost, and asks for another try
// when the user chooses it. Main queue only.
class FailedDictationKeeper {
  public:
    virtual ~FailedDictationKeeper() = default;
    // None when the recording could not be kept (logged by the keeper).
    virtual std::optional<Uuid> keepFailedDictation(const FailedDictation& dictation) = 0;
    virtual void retryFailedDictation(const Uuid& id) = 0;
};

}  // namespace vocle
