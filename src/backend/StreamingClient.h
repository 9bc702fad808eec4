#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backend/BackendService.h"
#include "backend/ResponseRecords.h"
#include "core/Mode.h"
#include "core/Replacement.h"

namespace vocle {

// The streaming transcription API: open a stream with the options of "/transcribe", post 16 kHz mono
// s16le audio in numbered chunks, end it for the final answer, or delete it. One attempt per call: the
// caller falls back to "/transcribe" rather than wait for retries.
class StreamingClient {
  public:
    explicit StreamingClient(BackendService& backend) : backend_(backend) {}

    // POST "/transcribe/stream".
    [[nodiscard]] Subscription open(const Mode& mode, const std::string& vocabWords,
                                    const std::vector<Replacement>& textReplacements,
                                    BackendService::Completion<StreamOpened> completion);
    // POST "/transcribe/stream/{id}/audio?seq=N".
    [[nodiscard]] Subscription sendAudio(const std::string& streamId, int64_t seq, std::string pcm,
                                         BackendService::Completion<StreamPartial> completion);
    // POST "/transcribe/stream/{id}/end": the members of a "/transcribe" answer.
    [[nodiscard]] Subscription end(const std::string& streamId,
                                   BackendService::Completion<TranscribeResponse> completion);
    // DELETE "/transcribe/stream/{id}".
    [[nodiscard]] Subscription discard(const std::string& streamId,
                                       BackendService::Completion<NoContent> completion);

    // The open request's body.
    static Json openBody(const Mode& mode, const std::string& vocabWords,
                         const std::vector<Replacement>& textReplacements);

  private:
    template <class T>
    Subscription once(const std::string& path, const std::string& method, RequestBody body,
                      BackendService::Completion<T> completion);

    BackendService& backend_;
};

}  // namespace vocle
