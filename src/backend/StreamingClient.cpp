#include "backend/StreamingClient.h"

#include <cctype>

#include "backend/TranscriptionClient.h"
#include "core/LiveTranscription.h"

namespace vocle {

namespace {
// Stream ids are the server's; keep them from reshaping the path.
bool isPathSafe(const std::string& id) {
    if (id.empty()) return false;
    for (unsigned char c : id)
        if (!(std::isalnum(c) || c == '-' || c == '_' || c == '.')) return false;
    return true;
}
}  // namespace

template <class T>
Subscription StreamingClient::once(const std::string& path, const std::string& method, RequestBody body,
                                   BackendService::Completion<T> completion) {
    if (auto refused = backend_.refuseWithoutSession(completion)) return std::move(*refused);
    const std::string url = backend_.endpoint(path);
    if (!BackendService::isValidURL(url))
        return backend_.deliverError(BackendError::invalidURL(), std::move(completion));
    return backend_.performRequest<T>(url, method, std::move(body), std::move(completion));
}

Json StreamingClient::openBody(const Mode& mode, const std::string& vocabWords,
                               const std::vector<Replacement>& textReplacements) {
    Json body = TranscriptionClient::transcriptionOptions(mode, vocabWords, textReplacements);
    body["sample_rate"] = PcmBuffer::kSampleRate;
    body["channels"] = 1;
    body["encoding"] = "s16le";
    return body;
}

Subscription StreamingClient::open(const Mode& mode, const std::string& vocabWords,
                                   const std::vector<Replacement>& textReplacements,
                                   BackendService::Completion<StreamOpened> completion) {
    return once("/transcribe/stream", "POST", RequestBody::json(openBody(mode, vocabWords, textReplacements)),
                std::move(completion));
}

Subscription StreamingClient::sendAudio(const std::string& streamId, int64_t seq, std::string pcm,
                                        BackendService::Completion<StreamPartial> completion) {
    if (!isPathSafe(streamId))
        return backend_.deliverError(BackendError::decoding("Unusable stream id"), std::move(completion));
    return once("/transcribe/stream/" + streamId + "/audio?seq=" + std::to_string(seq), "POST",
                RequestBody::raw(std::move(pcm), "application/octet-stream"), std::move(completion));
}

Subscription StreamingClient::end(const std::string& streamId,
                                  BackendService::Completion<TranscribeResponse> completion) {
    if (!isPathSafe(streamId))
        return backend_.deliverError(BackendError::decoding("Unusable stream id"), std::move(completion));
    return once("/transcribe/stream/" + streamId + "/end", "POST", RequestBody::raw(""),
                std::move(completion));
}

Subscription StreamingClient::discard(const std::string& streamId,
                                      BackendService::Completion<NoContent> completion) {
    if (!isPathSafe(streamId))
        return backend_.deliverError(BackendError::decoding("Unusable stream id"), std::move(completion));
    return once("/transcribe/stream/" + streamId, "DELETE", RequestBody::none(), std::move(completion));
}

}  // namespace vocle
