#pragma once

namespace vocle {

// The floating recording indicator as the recording controls see it. Both calls are idempotent and
// made on the main queue.
class RecordingIndicator {
public:
    virtual ~RecordingIndicator() = default;
    virtual void showIndicator() = 0;
    virtual void hideIndicator() = 0;
};

}  // namespace vocle
