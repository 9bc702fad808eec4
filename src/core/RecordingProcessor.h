#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Error.h"

namespace vocle {

// What the recording engine hands a finished recording to: the upload pipeline. The completion is
// called exactly once, with the transcript or an error whose description is shown to the user, on
// any thread.
class RecordingProcessor {
public:
    virtual ~RecordingProcessor() = default;
    virtual void processRecording(const std::filesystem::path& audioFile, const Mode& mode,
                                  const std::string& vocabWords, const std::vector<Replacement>& replacements,
                                  std::function<void(Result<std::string>)> completion) = 0;
};

}  // namespace vocle
