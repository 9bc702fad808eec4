#pragma once

#include <string>

namespace vocle {

// Puts a finished transcript where the user is typing: copies it to the clipboard, pastes it into the
// focused application and announces "TranscriptionCompleted". The clipboard manager implements it.
class TranscriptPaster {
public:
    virtual ~TranscriptPaster() = default;
    virtual void copyAndPaste(const std::string& text) = 0;
};

}  // namespace vocle
